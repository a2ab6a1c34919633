#include "registry/run_context.h"

RunContext g_run_context;

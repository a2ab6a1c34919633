#include "cli/entry.h"

int main(int argc, char** argv) { return sharelink_main(argc, argv); }

#include "cli/entry.h"

int sharelink_main(int argc, char** argv) {
  (void)argv;
  return argc < 2 ? 1 : 0;
}

// The dispatcher: runs the action that g_run_context.mode selects.
#ifndef SLT_CLI_DISPATCH_H_
#define SLT_CLI_DISPATCH_H_

// 1 the share mail, 2 the deletion of registry lines, 3 a read-through of
// the registry, 4 the rewrite of a registry line; any other mode does
// nothing. The action's result is discarded; always 0.
int dispatch_mode();

#endif  // SLT_CLI_DISPATCH_H_

// The command-line entry: parses the mode and its arguments into RunContext,
// refreshes the registry, dispatches and maps the result to the exit status.
#ifndef SLT_CLI_ENTRY_H_
#define SLT_CLI_ENTRY_H_

// The whole run of ShareLinkTool; returns the process exit status.
int sharelink_main(int argc, char** argv);

#endif  // SLT_CLI_ENTRY_H_

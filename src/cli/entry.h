// The command-line entry: parses the mode and its arguments into RunContext,
// refreshes the registry, dispatches and maps the result to the exit status.
//
// Exit statuses: 1 no mode, or a bad mode-3 option; 3 mode 1 with fewer than
// nine elements; 2 mode 1 recipients without "@"; 4 mode 2 without its
// argument; -20 (236 to the shell) for a result of -20; 0 otherwise. Nothing
// is printed for any of them. A missing argument reads as empty.
#ifndef SLT_CLI_ENTRY_H_
#define SLT_CLI_ENTRY_H_

// The whole run of ShareLinkTool; returns the process exit status.
int sharelink_main(int argc, char** argv);

// The exit status of a run that got past the command line, from its result.
int entry_exit_status(int result);

#endif  // SLT_CLI_ENTRY_H_

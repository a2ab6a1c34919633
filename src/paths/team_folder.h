// Team folders: "tfx://<folder>/<path>" addresses of the sync service, whose
// real folder only the sync-service tool "/sbin/mirrasrv_tool" knows.
#ifndef SLT_PATHS_TEAM_FOLDER_H_
#define SLT_PATHS_TEAM_FOLDER_H_

#include <cstddef>

// Asks the tool (as the super-user, for `user`) for the folder of `uri` and
// writes its real path, followed by "/" and the rest of the URI when there is
// one, into out (or back into uri, bounded by uri_size, when out is null).
// The tool's answer is used only when it begins with "/share"; any other
// answer gives an empty folder path. uri is left as it came in (unless it is
// the target). Returns 1 resolved, 0 when uri is not a team-folder address
// (nothing written), -1 when the tool is missing or prints nothing (nothing
// written).
int resolve_team_folder(char* uri, size_t uri_size, const char* user, char* out, size_t out_size);

#endif  // SLT_PATHS_TEAM_FOLDER_H_

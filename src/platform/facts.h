// Facts about the appliance that the platform answers from its configuration:
// web ports, volumes, share kinds, installed packages, remote folders,
// snapshot exports, the alert mail account. Each reads the INI files named in
// the platform contract; a missing value gives the stated default.
#ifndef SLT_PLATFORM_FACTS_H_
#define SLT_PLATFORM_FACTS_H_

int Get_Web_Access_Port();          // default 8080
int Get_Web_Access_SSL_Port();      // default 443
// 0: external plain port (default: the web access port); 1: external SSL
// port (default: the SSL port).
int Get_Service_External_Port(int ssl);

// The default data volume path into out ("" when there is none). Returns its
// length.
int Get_Default_Volume_Path(char* out, int size);

int Is_MTP_Share(const char* share);
int Is_ODD_Share(const char* share);
int Is_SK_Share(const char* share);
int Is_XPKG_Installed(const char* name);

// Local mount point of remote folder `id` named `name`: 0 and a malloc'ed copy
// in *local (the caller frees it), or -1 when there is no such folder.
int Remote_Folder_Get_Local(int id, const char* name, char** local);

int NAS_Snapshot_Is_Unified_Export_Enabled();
// 0 and the path in out, or -1 when it is not configured.
int NAS_Snapshot_Get_Unified_Export_Path(char* out, int size);
int NAS_Snapshot_Get_Unified_Export_Vault_Path(char* out, int size);

// The alert mail server ("" when none); returns its length.
int Get_Alert_SMTP_Server_IP(char* out, int size);
int Is_SMTP_Enable();

// Raises the effective user and group to the super-user; failures ignored.
void Become_ROOT();

#endif  // SLT_PLATFORM_FACTS_H_

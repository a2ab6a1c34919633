# Generates the benchmark appliance's data, deterministic from a seed:
#   store.sql   the rows of a 100,000-link store (one transaction)
#   registry    the registry, one line per link
#   files       the shared files to create (appliance paths)
#   mode2.txt   100 share URLs (half https) of lines the refresh keeps
#   mode4.txt   one share URL of a line the refresh keeps
#   mode1.txt   20 ids of links that have not expired
#   page.txt    user whose page mode 3 lists
# Usage: gawk -v seed=N -v now=EPOCH -v links=N -v users=N -v out=DIR -f fixture.awk
function id(   s, k) {
  do {
    s = ""
    for (k = 0; k < 10; ++k) s = s substr(ALNUM, int(rand() * 62) + 1, 1)
  } while (s in seen)
  seen[s] = 1
  return s
}
function q(s) { gsub(/'/, "''", s); return "'" s "'" }
function pick(n) { return int(rand() * n) }
BEGIN {
  ALNUM = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
  srand(seed)
  files_per_user = 40
  sql = out "/store.sql"; reg = out "/registry"; fl = out "/files"
  for (u = 0; u < users; ++u)
    for (k = 0; k < files_per_user; ++k) printf "/share/Public/user%d/file%d.dat\n", u, k > fl
  split(":4 :6 nas.example.com 192.168.1.20 :0:box.example:8081", hosts, " ")

  print "BEGIN TRANSACTION;" > sql
  eligible = 0; live = 0
  for (i = 0; i < links; ++i) {
    key = id()
    u = pick(users); k = pick(files_per_user)
    sync = rand() < 0.6
    creator = (sync ? "Mirra:" : "") "user" u
    shared = "/Public/user" u "/file" k ".dat"
    createtic = now - 31 * 86400 - pick(365 * 86400)
    r = rand()
    if (r < 0.03) expire = now - 3600 - pick(30 * 86400)
    else if (r < 0.70) expire = 0
    else expire = now + 86400 + pick(365 * 86400)
    ssl = pick(2)
    host = hosts[pick(5) + 1]
    useraddr = rand() < 0.5 ? "none@none" : "friend" pick(500) "@mail.example"
    link_name = rand() < 0.5 ? "" : "name-" i
    accesscode = rand() < 0.2 ? sprintf("%04d", pick(10000)) : ""
    printf "INSERT INTO SHARELINK_EVENT (pkey, host, ssl, sharefile, useraddr, filesize, createtic, expire, creator, accesscode, download_count, download_limit, misc, create_date, create_time, title, description, type, link_name) VALUES (%s, %s, %d, %s, %s, '%d', %d, %d, %s, %s, %d, %d, '00000001', '%s', '%s', %s, '', 0, %s);\n",
      q(key), q(host), ssl, q(shared), q(useraddr), pick(10000000), createtic, expire, q(creator),
      q(accesscode), pick(20), rand() < 0.5 ? 0 : 100, strftime("%Y-%m-%d", createtic, 1),
      strftime("%H:%M:%S", createtic, 1), q("share " i), q(link_name) > sql
    printf "INSERT INTO SHARELINK_FID (pkey, fid, sharefile) VALUES (%s, %s, %s);\n",
      q(key), q("F" i), q(shared) > sql
    if (expire == 0 || expire > now) live_ids[live++] = key

    # The registry: about half the paths exist, expiries mostly 0 or future.
    exists = rand() < 0.5
    path = "/share/Public/user" u "/" (exists ? "file" : "gone") k ".dat"
    r = rand()
    if (r < 0.03) rexp = now - 3600 - pick(30 * 86400)
    else if (r < 0.70) rexp = 0
    else rexp = now + 86400 + pick(365 * 86400)
    printf "%s\t%s\towner%d\t%d\t%s\t%d\t%d\t0\tv%d\t-\n", key, host, u, ssl, path, createtic, rexp, i > reg
    if (exists && rexp >= 0 && (rexp == 0 || rexp > now)) kept[eligible++] = key
  }
  print "COMMIT;" > sql

  step = int(eligible / 100)
  for (j = 0; j < 100; ++j) {
    key = kept[j * step]
    url = j % 2 ? "https://nas.example.com/share.cgi?ssid=" key : "http://192.168.1.20:8080/share.cgi?ssid=" key
    printf "%s%s", j ? "," : "", url > (out "/mode2.txt")
  }
  printf "https://nas.example.com/share.cgi?ssid=%s", kept[int(eligible / 2) + 1] > (out "/mode4.txt")
  step = int(live / 20)
  for (j = 0; j < 20; ++j) printf "%s%s", j ? "," : "", live_ids[j * step + 3] > (out "/mode1.txt")
  printf "user7" > (out "/page.txt")
}

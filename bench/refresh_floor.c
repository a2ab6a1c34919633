/* The least work a registry refresh can do, as a yardstick for the tool's:
 * read the whole registry, compare field 7 of each line with the clock and
 * stat field 5 only when the line has not expired, write the kept lines with
 * one write to a temporary file, fsync, rename it over the registry and
 * flush the folder, as the tool does.
 * Usage: refresh_floor ROOT   (the registry is ROOT/etc/config/shareFileEx.ini) */
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static void die(const char *what) {
  perror(what);
  exit(1);
}

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: refresh_floor ROOT\n");
    return 2;
  }
  char reg[4096], tmp[4096], path[8192];
  snprintf(reg, sizeof reg, "%s/etc/config/shareFileEx.ini", argv[1]);
  snprintf(tmp, sizeof tmp, "%s/etc/config/tmpXXXXXX", argv[1]);
  size_t root_len = strlen(argv[1]);
  memcpy(path, argv[1], root_len);

  int fd = open(reg, O_RDONLY);
  if (fd < 0) die(reg);
  struct stat st;
  if (fstat(fd, &st) != 0) die("fstat");
  size_t size = (size_t)st.st_size;
  char *in = malloc(size + 1);
  char *out = malloc(size + 1);
  if (in == NULL || out == NULL) die("malloc");
  size_t got = 0;
  while (got < size) {
    ssize_t n = read(fd, in + got, size - got);
    if (n <= 0) die("read");
    got += (size_t)n;
  }
  close(fd);

  const long long now = (long long)time(NULL);
  size_t kept = 0;
  const char *end = in + size;
  for (const char *line = in; line < end;) {
    const char *nl = memchr(line, '\n', (size_t)(end - line));
    const char *next = nl != NULL ? nl + 1 : end;
    const char *f5 = NULL, *f5_end = NULL, *f7 = NULL;
    int field = 1;
    for (const char *p = line; p < next && field < 7; ++p) {
      if (*p != '\t') continue;
      ++field;
      if (field == 5) f5 = p + 1;
      if (field == 6) f5_end = p;
      if (field == 7) f7 = p + 1;
    }
    if (f5 != NULL && f5_end != NULL && f7 != NULL && root_len + (size_t)(f5_end - f5) < sizeof path) {
      memcpy(path + root_len, f5, (size_t)(f5_end - f5));
      path[root_len + (size_t)(f5_end - f5)] = '\0';
      struct stat pst;
      long long expiry = strtoll(f7, NULL, 10);
      if ((expiry <= 0 || expiry >= now) && stat(path, &pst) == 0) {
        memcpy(out + kept, line, (size_t)(next - line));
        kept += (size_t)(next - line);
      }
    }
    line = next;
  }

  int tfd = mkstemp(tmp);
  if (tfd < 0) die(tmp);
  if (write(tfd, out, kept) != (ssize_t)kept) die("write");
  if (fsync(tfd) != 0) die("fsync");
  close(tfd);
  if (rename(tmp, reg) != 0) die("rename");
  char dir[4096];
  snprintf(dir, sizeof dir, "%s/etc/config", argv[1]);
  int dfd = open(dir, O_RDONLY | O_DIRECTORY);
  if (dfd < 0 || fsync(dfd) != 0) die(dir);
  close(dfd);
  free(in);
  free(out);
  return 0;
}

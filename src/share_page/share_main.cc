#include "share_page/share_main.h"

#include <arpa/inet.h>
#include <sqlite3.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "crypto/digest.h"
#include "crypto/secret.h"
#include "platform/cgi.h"
#include "platform/os.h"
#include "platform/root.h"
#include "share_page/access_db.h"
#include "share_page/bots.h"
#include "share_page/cookie.h"
#include "share_page/file_send.h"
#include "share_page/gate.h"
#include "share_page/page.h"
#include "share_page/request.h"
#include "share_page/zip_answer.h"

namespace {

constexpr size_t kMaxBody = 8192;
constexpr size_t kPageRows = 200;

struct Visit {
  ShareRequest req;
  time_t now = 0;
  std::string client;
  std::string ua;
  std::string ua_hash;
  bool head = false;
  AccessDb* access = nullptr;
};

void audit(const Visit& v, const std::string& event) {
  v.access->audit(v.now, v.req.ssid, share_item(v.req), v.client, v.ua_hash, event);
}

std::string base_url(const ShareRequest& req) {
  return "/share.cgi?ssid=" + url_encode(req.ssid);
}

std::string self_url(const ShareRequest& req) {
  std::string u = base_url(req);
  if (!req.fid.empty()) u += "&fid=" + url_encode(req.fid);
  if (!req.path.empty()) u += "&path=" + url_encode(req.path);
  return u;
}

std::string expires_text(const SharedLink& link) {
  return link.expire == 0 ? "never" : human_time(static_cast<time_t>(link.expire));
}

std::string downloads_left(const SharedLink& link) {
  if (link.download_limit <= 0) return "no limit";
  int left = link.download_limit - link.download_count;
  return std::to_string(left > 0 ? left : 0);
}

Reply code_form(const Visit& v, int status, const std::string& message) {
  Reply r;
  r.status = status;
  r.body = render_page("Access code", render_template("code.html",
                                                      {{"ACTION", html_escape(self_url(v.req))},
                                                       {"MESSAGE", html_escape(message)}}));
  return r;
}

Reply throttled(long wait) {
  Reply r = error_reply(429, "Too many wrong codes were tried from your network; please wait "
                             "and try again later.");
  r.headers.push_back("Retry-After: " + std::to_string(wait));
  return r;
}

struct Entry {
  std::string name;
  bool dir;
  unsigned long long size;
  time_t mtime;
};

// The folder's entries that can be offered: folders and regular files,
// without hidden names; links are not followed.
std::vector<Entry> list_folder(int fd) {
  std::vector<Entry> out;
  int dup_fd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (dup_fd < 0) return out;
  DIR* d = fdopendir(dup_fd);
  if (d == nullptr) {
    os.close(dup_fd);
    return out;
  }
  while (dirent* e = readdir(d)) {
    if (e->d_name[0] == '.') continue;
    struct stat st;
    if (fstatat(fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISDIR(st.st_mode) && !S_ISREG(st.st_mode)) continue;
    out.push_back({e->d_name, S_ISDIR(st.st_mode), static_cast<unsigned long long>(st.st_size),
                   st.st_mtime});
  }
  closedir(d);
  std::sort(out.begin(), out.end(), [](const Entry& a, const Entry& b) {
    return a.dir != b.dir ? a.dir : a.name < b.name;
  });
  return out;
}

std::string row(const std::string& url, const std::string& name, const std::string& size,
                const std::string& date) {
  return render_template("folder_row.html", {{"URL", html_escape(url)},
                                             {"NAME", html_escape(name)},
                                             {"SIZE", html_escape(size)},
                                             {"DATE", html_escape(date)}});
}

// The files of a multi-file link, each through the gate as its own request.
bool open_fid_file(const Visit& v, const std::string& fid, GateResult* file) {
  ShareRequest r = v.req;
  r.fid = fid;
  r.path.clear();
  r.zip = false;
  GateContext c;
  c.now = v.now;
  c.code_ok = true;       // the link's own gate already passed
  c.limit_exempt = true;  // and so did its limit
  *file = share_gate(r, c);
  return file->outcome == GateOutcome::kOpen && file->file.get() >= 0;
}

std::string download_all(const Visit& v, const GateResult& g) {
  long long size = zip_size(g, [&](const std::string& fid, GateResult* f) {
    return open_fid_file(v, fid, f);
  });
  if (size < 0) return std::string();
  const long long mib = (size + (1 << 20) - 1) >> 20;
  return render_template("download_all.html", {{"URL", html_escape(self_url(v.req) + "&zip=1")},
                                               {"MIB", std::to_string(mib)}});
}

// One archive: counted when it starts, every time (it has no resume).
int zip_download(const Visit& v, const GateResult& g) {
  return send_zip(
      g, v.head, [&](const std::string& fid, GateResult* f) { return open_fid_file(v, fid, f); },
      [&]() {
        if (g.link.from_registry) return true;
        if (!count_download(g.link.pkey)) {
          audit(v, "refused:limit");
          return false;
        }
        audit(v, "download:zip");
        return true;
      },
      v.access, v.client);
}

Reply folder_page(const Visit& v, const GateResult& g) {
  std::string rows;
  std::string pager;
  if (g.multi) {
    for (const auto& f : g.link.fids) {
      const char* slash = strrchr(f.second.c_str(), '/');
      rows += row(base_url(v.req) + "&fid=" + url_encode(f.first) + "&dl=1",
                  slash != nullptr ? slash + 1 : f.second, "", "");
    }
  } else {
    std::vector<Entry> entries = list_folder(g.folder.get());
    size_t first = static_cast<size_t>(v.req.page) * kPageRows;
    std::string prefix = v.req.path.empty() ? "" : v.req.path + "/";
    for (size_t i = first; i < entries.size() && i < first + kPageRows; ++i) {
      const Entry& e = entries[i];
      std::string url = base_url(v.req) + "&path=" + url_encode(prefix + e.name);
      rows += row(e.dir ? url : url + "&dl=1", e.dir ? e.name + "/" : e.name,
                  e.dir ? "" : human_size(e.size), human_time(e.mtime));
    }
    std::string here = self_url(v.req);
    if (v.req.page > 0) {
      pager += "<a href=\"" + html_escape(here + "&page=" + std::to_string(v.req.page - 1)) +
               "\">Previous</a> ";
    }
    if (first + kPageRows < entries.size()) {
      pager += "<a href=\"" + html_escape(here + "&page=" + std::to_string(v.req.page + 1)) +
               "\">Next</a>";
    }
  }
  Reply r;
  r.body = render_page(g.name, render_template("folder.html",
                                               {{"NAME", html_escape(g.name)},
                                                {"EXPIRES", html_escape(expires_text(g.link))},
                                                {"DOWNLOADS_LEFT", html_escape(downloads_left(g.link))},
                                                {"DOWNLOAD_ALL", download_all(v, g)},
                                                {"ROWS", rows},
                                                {"PAGER", pager}}));
  return r;
}

Reply file_page(const Visit& v, const GateResult& g) {
  Reply r;
  r.body = render_page(
      g.name, render_template("file.html",
                              {{"NAME", html_escape(g.name)},
                               {"SIZE", html_escape(human_size(static_cast<unsigned long long>(g.st.st_size)))},
                               {"EXPIRES", html_escape(expires_text(g.link))},
                               {"DOWNLOADS_LEFT", html_escape(downloads_left(g.link))},
                               {"DOWNLOAD_URL", html_escape(self_url(v.req) + "&dl=1")}}));
  return r;
}

// The file itself, counted when the rules say so.
int download(Visit& v, GateResult& g, const std::string& visitor) {
  FilePlan plan = plan_file_answer(g.st, cgi_env("HTTP_IF_NONE_MATCH"),
                                   cgi_env("HTTP_IF_MODIFIED_SINCE"), cgi_env("HTTP_IF_RANGE"),
                                   cgi_env("HTTP_RANGE"));
  const bool from_start = plan.answer == FileAnswer::kWhole ||
                          (plan.answer == FileAnswer::kPartial && plan.start == 0);
  const std::string item = share_item(v.req);
  if (!v.head && from_start && !g.link.from_registry &&
      !v.access->counted_recently(v.now, visitor, v.req.ssid, item)) {
    if (!count_download(g.link.pkey)) {
      audit(v, "refused:limit");
      send_page(error_reply(410, "This link has reached its download limit."), v.head);
      return 0;
    }
    v.access->record_counted(v.now, visitor, v.req.ssid, item);
    audit(v, "download");
  }
  const char* xs = cgi_env("SHARE_X_SENDFILE");
  std::string hand_over;
  if (xs != nullptr && strcmp(xs, "1") == 0) hand_over = rooted_path(g.real_path.c_str());
  return send_shared_file(g.file.get(), g.st, g.name, plan, v.head, v.req.inline_view, hand_over)
             ? 0
             : 1;
}

std::string read_body() {
  const char* type = cgi_env("CONTENT_TYPE");
  const char* len = cgi_env("CONTENT_LENGTH");
  if (type == nullptr || strncmp(type, "application/x-www-form-urlencoded", 33) != 0 ||
      len == nullptr) {
    return std::string();
  }
  long n = strtol(len, nullptr, 10);
  if (n <= 0) return std::string();
  size_t want = static_cast<size_t>(n) < kMaxBody ? static_cast<size_t>(n) : kMaxBody;
  std::string body(want, '\0');
  size_t got = 0;
  while (got < want) {
    ssize_t r = os.read(0, &body[got], want - got);
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  body.resize(got);
  return body;
}

}  // namespace

std::string client_key(const char* remote_addr) {
  if (remote_addr == nullptr) return "unknown";
  unsigned char a[16];
  char out[INET6_ADDRSTRLEN + 4];
  if (inet_pton(AF_INET, remote_addr, a) == 1) {
    inet_ntop(AF_INET, a, out, sizeof out);
    return out;
  }
  if (inet_pton(AF_INET6, remote_addr, a) == 1) {
    static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (memcmp(a, mapped, 12) == 0) {
      inet_ntop(AF_INET, a + 12, out, sizeof out);
      return out;
    }
    memset(a + 8, 0, 8);
    inet_ntop(AF_INET6, a, out, sizeof out);
    return std::string(out) + "/64";
  }
  return std::string(remote_addr).substr(0, 64);
}

int share_cgi_main() {
  // One request per process: small SQLite caches and no libcrypto set-up
  // (cookie.cc uses its direct digest calls) keep the resident size low.
  sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
  Visit v;
  const char* method = cgi_env("REQUEST_METHOD");
  std::string body = method != nullptr && strcmp(method, "POST") == 0 ? read_body() : "";
  v.req = parse_share_request(method, cgi_env("QUERY_STRING"), cgi_env("HTTP_COOKIE"), body.data(),
                              body.size());
  if (v.req.method != "GET" && v.req.method != "HEAD" && v.req.method != "POST") {
    Reply r = error_reply(405, "This address only answers GET, HEAD and POST.");
    r.headers.push_back("Allow: GET, HEAD, POST");
    send_page(r, false);
    return 0;
  }
  v.head = v.req.method == "HEAD";
  v.now = os.time(nullptr);
  v.client = client_key(cgi_env("REMOTE_ADDR"));
  v.ua = cgi_env("HTTP_USER_AGENT") != nullptr ? cgi_env("HTTP_USER_AGENT") : "";
  v.ua_hash = sha256_hex(v.ua).substr(0, 16);
  AccessDb access;
  v.access = &access;
  const bool bot = is_preview_bot(v.ua.c_str());

  GateContext ctx;
  ctx.now = v.now;
  appliance_secret(&ctx.secret);
  // The visitor for the repeat rule: the code cookie, else address and agent.
  SharedLink probe;
  const bool known = find_shared_link(v.req.ssid, &probe);
  std::string cookie =
      known ? cookie_value(v.req.cookies, share_cookie_name(probe.pkey)) : std::string();
  bool cookie_ok = known && !probe.accesscode.empty() && !cookie.empty() &&
                   share_cookie_valid(ctx.secret, probe.pkey, probe.accesscode, cookie, v.now);
  std::string visitor = cookie_ok ? "c:" + sha256_hex(cookie) : "a:" + sha256_hex(v.client + "\n" + v.ua);
  const std::string item = share_item(v.req);

  if (!known) {
    // Guessing ids is a wrong code too.
    long wait = access.retry_after(v.now, v.client, v.req.ssid);
    if (wait > 0) {
      audit(v, "refused:throttled");
      send_page(throttled(wait), v.head);
      return 0;
    }
    access.record_failure(v.now, v.client, v.req.ssid);
    audit(v, "refused:unknown");
    send_page(error_reply(404, "This link does not exist or is no longer shared."), v.head);
    return 0;
  }
  // A typed code: checked before the gate so that the gate sees the proof.
  std::string set_cookie;
  if (!probe.accesscode.empty() && !cookie_ok && v.req.has_code) {
    long wait = access.retry_after(v.now, v.client, v.req.ssid);
    if (wait > 0) {
      audit(v, "refused:throttled");
      send_page(throttled(wait), v.head);
      return 0;
    }
    if (!share_code_matches(v.req.code, probe.accesscode)) {
      access.record_failure(v.now, v.client, v.req.ssid);
      audit(v, "bad-code");
      send_page(code_form(v, 403, "That code is not right."), v.head);
      return 0;
    }
    std::string value = make_share_cookie(ctx.secret, probe.pkey, probe.accesscode, v.now);
    const char* https = cgi_env("HTTPS");
    set_cookie = "Set-Cookie: " + share_cookie_name(probe.pkey) + "=" + value +
                 "; Max-Age=" + std::to_string(kCookieLifetime) +
                 "; Path=/share.cgi; HttpOnly; SameSite=Lax" +
                 (https != nullptr && strcmp(https, "on") == 0 ? "; Secure" : "");
    ctx.code_ok = true;
    audit(v, "code-accepted");
  }
  ctx.limit_exempt = v.req.dl && access.counted_recently(v.now, visitor, v.req.ssid, item);

  GateResult g = share_gate(v.req, ctx);
  switch (g.outcome) {
    case GateOutcome::kNotFound:
      audit(v, "refused:not-found");
      send_page(error_reply(404, "This link does not exist or is no longer shared."), v.head);
      return 0;
    case GateOutcome::kExpired:
      audit(v, "refused:expired");
      send_page(error_reply(410, "This link expired on " +
                                     human_time(static_cast<time_t>(g.link.expire)) + "."),
                v.head);
      return 0;
    case GateOutcome::kLimitReached:
      audit(v, "refused:limit");
      send_page(error_reply(410, "This link has reached its download limit."), v.head);
      return 0;
    case GateOutcome::kNeedsCode: {
      long wait = access.retry_after(v.now, v.client, v.req.ssid);
      if (wait > 0) {
        audit(v, "refused:throttled");
        send_page(throttled(wait), v.head);
        return 0;
      }
      audit(v, "code-asked");
      send_page(code_form(v, v.req.dl || v.req.zip ? 403 : 200, ""), v.head);
      return 0;
    }
    case GateOutcome::kOpen:
      break;
  }
  if (!set_cookie.empty()) {
    // Back to the same address by GET, so a reload does not post the code again.
    Reply r;
    r.status = 303;
    r.headers.push_back(set_cookie);
    r.headers.push_back("Location: " + self_url(v.req));
    send_page(r, v.head);
    return 0;
  }
  if ((v.req.dl || v.req.zip) && bot) {
    audit(v, "refused:bot");
    send_page(error_reply(403, "Downloads start only when a person opens this link."), v.head);
    return 0;
  }
  if (g.multi || g.is_folder) {
    if (v.req.zip && !v.req.dl) return zip_download(v, g);
    if (v.req.dl || v.req.zip) {
      audit(v, "refused:not-found");
      send_page(error_reply(404, "This link does not exist or is no longer shared."), v.head);
      return 0;
    }
    audit(v, "view");
    send_page(folder_page(v, g), v.head);
    return 0;
  }
  if (!v.req.dl) {
    audit(v, "view");
    send_page(file_page(v, g), v.head);
    return 0;
  }
  return download(v, g, visitor);
}

#include "share_page/share_main.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/cgi.h"
#include "platform/os.h"
#include "platform/root.h"
#include "platform/terminal_text.h"
#include "share_page/access_db.h"
#include "share_page/file_send.h"
#include "share_page/gate.h"
#include "share_page/page.h"
#include "share_page/request.h"
#include "share_page/zip_answer.h"
#include "sharelink_db/store_use_lock.h"

namespace {

constexpr size_t kPageRows = 200;

std::string expires_text(const SharedLink& link) {
  return link.expire == 0 ? "never" : human_time(static_cast<time_t>(link.expire));
}

std::string downloads_left(const SharedLink& link) {
  if (link.download_limit <= 0) return "no limit";
  int left = link.download_limit - link.download_count;
  return std::to_string(left > 0 ? left : 0);
}

Reply verdict_page(const ShareRequest& req, const Verdict& v) {
  if (!v.code_form) {
    Reply r = v.kind == AnswerKind::kRedirect ? Reply() : error_reply(v.status, v.sentence);
    r.status = v.status;
    r.headers = v.headers;
    return r;
  }
  Reply r;
  r.status = v.status;
  r.headers = v.headers;
  r.body = render_page("Access code", render_template("code.html",
                                                      {{"ACTION", html_escape(share_self_url(req))},
                                                       {"TOKEN", html_escape(v.form_token)},
                                                       {"MESSAGE", html_escape(v.sentence)}}));
  return r;
}

// A stored name as the page shows it: escaped, and without the controls
// that would make it read otherwise ("photo<U+202E>gpj.exe").
std::string shown_name(const std::string& name) { return html_escape(without_hidden_controls(name)); }

struct Entry {
  std::string name;
  bool dir;
  unsigned long long size;
  time_t mtime;
};

// The folder's entries that can be offered: folders and regular files,
// without hidden names or the store's folder; links are not followed.
std::vector<Entry> list_folder(int fd, const StoreFiles& store) {
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
    if (fstatat(fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || store.contains(st)) continue;
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
                                             {"NAME", shown_name(name)},
                                             {"SIZE", html_escape(size)},
                                             {"DATE", html_escape(date)}});
}

std::string download_all(const ShareRequest& req, const Verdict& v) {
  long long size = zip_size(v);
  if (size < 0) return std::string();
  const long long mib = (size + (1 << 20) - 1) >> 20;
  return render_template("download_all.html",
                         {{"URL", html_escape(share_self_url(req) + "&zip=1")},
                          {"MIB", std::to_string(mib)}});
}

std::string pager(const ShareRequest& req, size_t total) {
  std::string out;
  const std::string here = share_self_url(req);
  if (req.page > 0) {
    out += "<a href=\"" + html_escape(here + "&page=" + std::to_string(req.page - 1)) +
           "\">Previous</a> ";
  }
  if ((static_cast<size_t>(req.page) + 1) * kPageRows < total) {
    out += "<a href=\"" + html_escape(here + "&page=" + std::to_string(req.page + 1)) +
           "\">Next</a>";
  }
  return out;
}

Reply folder_page(const ShareRequest& req, const Verdict& v) {
  std::string rows;
  std::string pages;
  if (v.target.multi) {
    for (const auto& f : v.link.fids) {
      const char* slash = strrchr(f.second.c_str(), '/');
      rows += row(share_base_url(req) + "&fid=" + url_encode(f.first) + "&dl=1",
                  slash != nullptr ? slash + 1 : f.second, "", "");
    }
  } else {
    std::vector<Entry> entries = list_folder(v.target.folder.get(), v.store);
    size_t first = static_cast<size_t>(req.page) * kPageRows;
    std::string prefix = req.path.empty() ? "" : req.path + "/";
    for (size_t i = first; i < entries.size() && i < first + kPageRows; ++i) {
      const Entry& e = entries[i];
      std::string url = share_base_url(req) + "&path=" + url_encode(prefix + e.name);
      rows += row(e.dir ? url : url + "&dl=1", e.dir ? e.name + "/" : e.name,
                  e.dir ? "" : human_size(e.size), human_time(e.mtime));
    }
    pages = pager(req, entries.size());
  }
  Reply r;
  r.body = render_page(without_hidden_controls(v.target.name),
                       render_template("folder.html",
                                       {{"NAME", shown_name(v.target.name)},
                                        {"EXPIRES", html_escape(expires_text(v.link))},
                                        {"DOWNLOADS_LEFT", html_escape(downloads_left(v.link))},
                                        {"DOWNLOAD_ALL", download_all(req, v)},
                                        {"ROWS", rows},
                                        {"PAGER", pages}}));
  return r;
}

Reply file_page(const ShareRequest& req, const Verdict& v) {
  Reply r;
  const auto size = static_cast<unsigned long long>(v.target.st.st_size);
  r.body = render_page(
      without_hidden_controls(v.target.name),
      render_template("file.html", {{"NAME", shown_name(v.target.name)},
                                    {"SIZE", html_escape(human_size(size))},
                                    {"EXPIRES", html_escape(expires_text(v.link))},
                                    {"DOWNLOADS_LEFT", html_escape(downloads_left(v.link))},
                                    {"DOWNLOAD_URL", html_escape(share_self_url(req) + "&dl=1")}}));
  return r;
}

// One archive: counted when it starts, every time; the store may move once
// the count is in.
int zip_download(const ShareRequest& req, const Verdict& v, AccessDb* access,
                 StoreUseLock* use) {
  return send_zip(v, req.head, req.client, [&]() {
    CountOutcome r = CountOutcome::kCounted;
    if (!v.link.from_registry) {
      CountedVisit visit{req.now, v.link.pkey, v.visitor, v.address_visitor, share_item(req),
                         req.client, v.ua_hash, "download:zip"};
      r = access->count_download(visit);
    }
    use->release();
    return r;
  }, access);
}

// The body goes to the web server only for an unconditional request: the
// server would answer a condition share.cgi did not understand with 304 or
// 412 after the download was counted.
int file_download(const ShareRequest& req, const Verdict& v) {
  const char* xs = cgi_env("SHARE_X_SENDFILE");
  const bool conditional = req.if_none_match.present || req.if_modified_since.present ||
                           cgi_env("HTTP_IF_MATCH") != nullptr ||
                           cgi_env("HTTP_IF_UNMODIFIED_SINCE") != nullptr;
  const std::string folder = xs != nullptr && strcmp(xs, "1") == 0 && !conditional
                                 ? xsend_folder(cgi_env("SHARE_XSEND_FOLDER"))
                                 : std::string();
  return send_shared_file(v.target.file.get(), v.target.st, v.target.name, v.plan, req.head,
                          req.inline_view, folder, v.headers)
             ? 0
             : 1;
}

}  // namespace

int share_cgi_main() {
  access_db_one_request();
  const ShareRequest req = read_share_request();
  // Held from reading the store's path until the request's records are
  // written: a relocation waits, and no count lands in a file it moved.
  StoreUseLock use(StoreUseLock::kShared);
  AccessDb access;
  Verdict v = use.held() ? share_gate(req, &access) : share_unavailable();
  // An answer whose audit row cannot be written is not given.
  if (!v.event.empty() &&
      !access.audit(req.now, req.ssid, share_item(req), req.client, v.ua_hash, v.event)) {
    v = share_unavailable();
  }
  if (v.kind == AnswerKind::kZip) return zip_download(req, v, &access, &use);
  use.release();
  switch (v.kind) {
    case AnswerKind::kPage:
    case AnswerKind::kRedirect: send_page(verdict_page(req, v), req.head); return 0;
    case AnswerKind::kFolderPage: send_page(folder_page(req, v), req.head); return 0;
    case AnswerKind::kFilePage: send_page(file_page(req, v), req.head); return 0;
    case AnswerKind::kFile: return file_download(req, v);
    case AnswerKind::kZip: break;
  }
  return 0;
}

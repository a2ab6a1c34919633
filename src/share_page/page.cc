#include "share_page/page.h"

#include <cstdio>
#include <fstream>
#include <sstream>

#include "platform/data_dir.h"
#include "share_page/request.h"
#include "weblib/delivery_output.h"

std::string share_base_url(const ShareRequest& req) {
  return "/share.cgi?ssid=" + url_encode(req.ssid);
}

std::string share_self_url(const ShareRequest& req) {
  std::string u = share_base_url(req);
  if (!req.fid.empty()) u += "&fid=" + url_encode(req.fid);
  if (!req.path.empty()) u += "&path=" + url_encode(req.path);
  return u;
}

std::string html_escape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string url_encode(const std::string& text) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += digits[c >> 4];
      out += digits[c & 15];
    }
  }
  return out;
}

std::string header_safe(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c >= 0x20 && c != 0x7f) out += static_cast<char>(c);
  }
  return out;
}

std::string human_size(unsigned long long bytes) {
  static const char* const units[] = {"bytes", "KB", "MB", "GB", "TB"};
  char buf[32];
  if (bytes < 1024) {
    snprintf(buf, sizeof buf, "%llu bytes", bytes);
    return buf;
  }
  double v = static_cast<double>(bytes);
  int u = 0;
  while (v >= 1024 && u < 4) {
    v /= 1024;
    ++u;
  }
  snprintf(buf, sizeof buf, "%.1f %s", v, units[u]);
  return buf;
}

std::string human_time(time_t when) {
  struct tm tm;
  char buf[64];
  if (gmtime_r(&when, &tm) == nullptr || strftime(buf, sizeof buf, "%Y-%m-%d %H:%M UTC", &tm) == 0) {
    return "?";
  }
  return buf;
}

std::string render_template(const char* name, const std::map<std::string, std::string>& vars) {
  std::ifstream in(slt_data_file((std::string("share/") + name).c_str()), std::ios::binary);
  if (!in) return std::string();
  std::stringstream ss;
  ss << in.rdbuf();
  const std::string text = ss.str();
  std::string out;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t a = text.find('$', pos);
    size_t b = a == std::string::npos ? a : text.find('$', a + 1);
    if (b == std::string::npos) break;
    auto it = vars.find(text.substr(a + 1, b - a - 1));
    if (it == vars.end()) {
      out.append(text, pos, b - pos);
      pos = b;
      continue;
    }
    out.append(text, pos, a - pos);
    out += it->second;
    pos = b + 1;
  }
  if (pos < text.size()) out.append(text, pos, std::string::npos);
  return out;
}

std::string render_page(const std::string& title, const std::string& content) {
  return render_template("layout.html", {{"TITLE", html_escape(title)}, {"CONTENT", content}});
}

const char* status_reason(int status) {
  switch (status) {
    case 200: return "OK";
    case 206: return "Partial Content";
    case 303: return "See Other";
    case 304: return "Not Modified";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 410: return "Gone";
    case 416: return "Range Not Satisfiable";
    case 429: return "Too Many Requests";
    case 503: return "Service Unavailable";
    default: return "Internal Server Error";
  }
}

std::string security_headers(bool page) {
  std::string h =
      "X-Content-Type-Options: nosniff\r\n"
      "Referrer-Policy: no-referrer\r\n"
      "X-Robots-Tag: noindex, nofollow\r\n";
  h += page ? "Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'; "
              "img-src 'self'; form-action 'self'; frame-ancestors 'none'\r\n"
            : "Content-Security-Policy: sandbox\r\n";
  return h;
}

bool send_page(const Reply& reply, bool head) {
  std::string out = "Status: " + std::to_string(reply.status) + " " + status_reason(reply.status) +
                    "\r\n";
  out += security_headers(true);
  out += "Cache-Control: no-store\r\n";
  for (const std::string& h : reply.headers) out += h + "\r\n";
  if (!reply.body.empty()) {
    out += "Content-Type: text/html; charset=utf-8\r\n";
    out += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
  }
  out += "\r\n";
  if (!head) out += reply.body;
  return delivery_write(out.data(), out.size()) && delivery_flush();
}

Reply error_reply(int status, const std::string& sentence) {
  Reply r;
  r.status = status;
  const char* heading = status == 404   ? "Link not found"
                        : status == 410 ? "Link no longer available"
                        : status == 429 ? "Too many attempts"
                        : status == 503 ? "Busy"
                                        : "Not allowed";
  r.body = render_page(heading, render_template("error.html", {{"HEADING", html_escape(heading)},
                                                               {"SENTENCE", html_escape(sentence)}}));
  return r;
}

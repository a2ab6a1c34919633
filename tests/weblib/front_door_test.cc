// The pieces of the front doors: form tokens, the same-site rule and text made safe for terminals and download
// names. The programs behind lighttpd: tests/e2e/web_test.cc and hostile_input_test.cc.
#include <gtest/gtest.h>

#include <string>

#include "crypto/digest.h"
#include "crypto/form_token.h"
#include "platform/terminal_text.h"
#include "weblib/same_site.h"

namespace {

TEST(FormToken, HoldsForItsHourAndTheNextForItsUserAndSecretOnly) {
  const std::string secret(32, 's');
  const time_t hour = 1700000000 / 3600 * 3600;
  const std::string t = make_form_token(secret, "admin", hour + 10), window = std::to_string(hour / 3600);
  EXPECT_EQ(hmac_sha256_hex(secret, "form-token\nadmin\n" + window), t);
  EXPECT_EQ(64u, t.size());
  EXPECT_EQ(t, make_form_token(secret, "admin", hour + 3599));
  EXPECT_NE(t, make_form_token(secret, "admin", hour + 3600));
  const struct { std::string secret, user, token; time_t now; bool valid; } cases[] = {
      {secret, "admin", t, hour, true}, {secret, "admin", t, hour + 3600, true},
      {secret, "admin", t, hour + 7199, true}, {secret, "admin", t, hour + 7200, false},
      {secret, "admin", t, hour - 1, false}, {secret, "bob", t, hour, false},
      {std::string(32, 't'), "admin", t, hour, false}, {secret, "admin", t.substr(0, 63), hour, false},
      {secret, "admin", t + "0", hour, false}, {secret, "admin", "", hour, false},
      // What anyone could compute were the secret or the user empty.
      {"", "admin", hmac_sha256_hex("", "form-token\nadmin\n" + window), hour, false},
      {secret, "", hmac_sha256_hex(secret, "form-token\n\n" + window), hour, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.valid, form_token_valid(c.secret, c.user, c.token, c.now)) << c.user << " " << c.now - hour;
  }
  EXPECT_EQ("", make_form_token("", "admin", hour)); EXPECT_EQ("", make_form_token(secret, "", hour));
}

TEST(SameSite, OnlyTheRequestsOwnOriginOrNoneAtAll) {
  const struct { const char* origin; const char* site; const char* host; bool https; bool same; } cases[] = {
      {nullptr, nullptr, "nas:8080", false, true},  // not a browser
      {nullptr, "same-origin", "nas:8080", false, true}, {nullptr, "none", nullptr, false, true},
      {"http://nas:8080", "same-origin", "nas:8080", false, true},
      {"http://NAS:8080", nullptr, "nas:8080", false, true},
      {"https://nas", nullptr, "nas", true, true}, {"http://nas", nullptr, "nas", true, false},
      {"https://nas", nullptr, "nas", false, false}, {"http://nas:8080", "same-site", "nas:8080", false, false},
      {"http://nas:8080", "cross-site", "nas:8080", false, false}, {nullptr, "", "nas", false, false},
      {"http://evil.example", nullptr, "nas:8080", false, false}, {"null", nullptr, "nas", false, false},
      {"null", "same-origin", "nas", false, true}, {"null", "cross-site", "nas", false, false},
      {"http://nas:8080", nullptr, nullptr, false, false}, {"http://nas:8080", nullptr, "", false, false},
      {"http://nas:80801", nullptr, "nas:8080", false, false}, {"http://nas:8080/", nullptr, "nas:8080", false, false},
      {"http://nas", nullptr, "nas:8080", false, false}, {"nas:8080", nullptr, "nas:8080", false, false},
      {"", nullptr, "nas", false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.same, same_site_request(c.origin, c.site, c.host, c.https))
        << (c.origin ? c.origin : "-") << " " << (c.site ? c.site : "-") << " " << (c.host ? c.host : "-");
  }
}

TEST(TerminalText, EscapesWhatATerminalActsOnAndDropsItFromNames) {
  const std::string kept = "plain Gr\xc3\xbc\xc3\x9f" "e \xe6\x9d\xb1\xf0\x9f\x98\x80 ~";
  const std::string edges = "\xf4\x8f\xbf\xbf\xdf\xbf\xe0\xa0\x80\xf0\x90\x80\x80";  // the edges that are UTF-8
  const struct { std::string text, terminal, name; } cases[] = {
      {kept, kept, kept}, {edges, edges, edges},
      {"a\tb\nc\rd\\e", "a\\tb\\nc\\rd\\\\e", "abcd\\e"},
      {std::string("\x00\x01\x1b\x1f\x7f", 5), "\\x00\\x01\\x1b\\x1f\\x7f", ""},
      {"\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0", "\\u0080\\u009b\\u009f\xc2\xa0", "\xc2\xa0"},  // C1 as characters
      {"\x80\x9b\x9f\xa0\xff", "\\x80\\x9b\\x9f\\xa0\\xff", "\xa0\xff"},                // raw bytes
      {"photo\xe2\x80\xaegpj.exe", "photo\\u202egpj.exe", "photogpj.exe"},
      {"\xc2\xad\xd8\x80\xd8\x85\xd8\x9c\xdb\x9d\xdc\x8f\xe1\xa0\x8e",
       "\\u00ad\\u0600\\u0605\\u061c\\u06dd\\u070f\\u180e", ""},
      {"\xe2\x80\x8a\xe2\x80\x8b\xe2\x80\x8f\xe2\x80\x90", "\xe2\x80\x8a\\u200b\\u200f\xe2\x80\x90",
       "\xe2\x80\x8a\xe2\x80\x90"},
      {"\xe2\x80\xa7\xe2\x80\xa8\xe2\x80\xaa\xe2\x80\xae\xe2\x80\xaf", "\xe2\x80\xa7\\u2028\\u202a\\u202e\xe2\x80\xaf",
       "\xe2\x80\xa7\xe2\x80\xaf"},
      {"\xe2\x81\x9f\xe2\x81\xa0\xe2\x81\xa6\xe2\x81\xaf\xe2\x81\xb0", "\xe2\x81\x9f\\u2060\\u2066\\u206f\xe2\x81\xb0",
       "\xe2\x81\x9f\xe2\x81\xb0"},
      {"\xef\xbb\xbf\xef\xbf\xb9\xef\xbf\xbb\xef\xbf\xbc", "\\ufeff\\ufff9\\ufffb\xef\xbf\xbc", "\xef\xbf\xbc"},
      {"\xf3\xa0\x80\x81\xf3\xa0\x81\xbf\xf3\xa0\x84\x80", "\\U000e0001\\U000e007f\xf3\xa0\x84\x80",
       "\xf3\xa0\x84\x80"},
      {"\xf0\x9d\x85\xb3\xf0\x91\x82\xbd", "\\U0001d173\\U000110bd", ""},
      // Not UTF-8: overlong, surrogate, beyond U+10FFFF, cut short (lone continuation bytes follow).
      {"\xc0\xaf\xe0\x80\xaf\xed\xa0\x80\xf4\x90\x80\x80\xe2\x80",
       "\\xc0\\xaf\\xe0\\x80\\xaf\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80\\xe2\\x80", "\xc0\xaf\xe0\xaf\xed\xa0\xf4\xe2"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.terminal, terminal_safe(c.text)) << c.terminal;
    EXPECT_EQ(c.name, without_hidden_controls(c.text)) << c.terminal;
  }
}

}  // namespace

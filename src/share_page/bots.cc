#include "share_page/bots.h"

#include <strings.h>

#include <cstring>

namespace {

// Keep grouped; lower case. A name that a real browser's User-Agent could
// contain must not be added.
const char* const kBots[] = {
    // chat apps
    "slackbot", "slack-imgproxy", "discordbot", "telegrambot", "whatsapp", "skypeuripreview",
    "viber", "line-poker", "kakaotalk-scrap", "signal", "mattermost", "rocket.chat", "zoom",
    "teams", "microsoftpreview",
    // social networks
    "facebookexternalhit", "facebot", "twitterbot", "linkedinbot", "pinterest", "redditbot",
    "tumblr", "vkshare", "embedly", "iframely", "mastodon", "bluesky", "snapchat",
    "w3c_validator",
    // office and mail link scanners
    "microsoft office", "ms-office", "office 365", "outlook", "safelinks", "barracuda",
    "mimecast", "proofpoint", "symantec", "trendmicro", "forcepoint", "sophos", "fortiguard",
    "zscaler", "ironport", "cisco", "google-safety", "googleimageproxy", "yahoomailproxy",
    "mailscanner",
    // search engines and generic crawlers
    "googlebot", "google-inspectiontool", "bingbot", "bingpreview", "yandex", "baiduspider",
    "duckduckbot", "applebot", "petalbot", "sogou", "seznambot", "qwantify", "ia_archiver",
    "crawler", "spider", "bot/", "preview",
};

bool contains_ci(const char* hay, const char* needle) {
  size_t n = strlen(needle);
  for (const char* p = hay; *p != '\0'; ++p) {
    if (strncasecmp(p, needle, n) == 0) return true;
  }
  return false;
}

}  // namespace

bool is_preview_bot(const char* user_agent) {
  if (user_agent == nullptr) return false;
  for (const char* bot : kBots) {
    if (contains_ci(user_agent, bot)) return true;
  }
  return false;
}

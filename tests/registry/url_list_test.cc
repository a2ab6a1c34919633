// Mode 2's URL list: items are read as get_field reads them (empty items do
// not count, an item of 256 bytes or more cannot be read), however long the
// list.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "registry/edits.h"
#include "registry/refresh.h"
#include "registry/run_context.h"
#include "registry/share_url.h"
#include "support/appliance.h"

namespace {

class UrlListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    share_url_forget_port();
    memset(&g_run_context, 0, sizeof g_run_context);
    root.write(kShareRegistryPath, registry);
  }
  void TearDown() override {
    free(g_run_context.edit_input);
    memset(&g_run_context, 0, sizeof g_run_context);
  }
  int delete_with(const std::string& list) {
    free(g_run_context.edit_input);
    g_run_context.edit_input = strdup(list.c_str());
    g_run_context.edit_input_len = static_cast<int32_t>(list.size());
    return delete_registry_links();
  }
  static std::string url(const std::string& id) { return "http://h:1/share.cgi?ssid=" + id; }

  ApplianceRoot root;
  ScopedEnv env{{{"SHARELINK_ROOT", root.dir()}}};
  const std::string k1 = "K1\th\t-\t0\t/share/a\t-\t0\t-\tv\t-\n";
  const std::string k2 = "K2\th\t-\t0\t/share/a\t-\t0\t-\tv\t-\n";
  const std::string k3 = "K3\th\t-\t0\t/share/a\t-\t0\t-\tv\t-\n";
  const std::string registry = k1 + k2 + k3;
};

TEST_F(UrlListTest, TheLastOfSixtyFourThousandItemsIsReached) {
  std::string list;
  for (int i = 0; i < 65534; ++i) list += url("Zz") + ",";
  list += url("K2");  // item 65,535
  EXPECT_EQ(1, delete_with(list));
  EXPECT_EQ(k1 + k3, root.read(kShareRegistryPath));
}

TEST_F(UrlListTest, ItemsThatCannotBeReadStopTheDeletion) {
  // Commas only: no item at all.
  EXPECT_EQ(-1, delete_with(std::string(65535, ',')));
  EXPECT_EQ(registry, root.read(kShareRegistryPath));

  // An empty item does not count, so the last counted item is missing: K1
  // matches before it is needed, K2 reaches it.
  root.remove(std::string(kShareRegistryPath) + ".del");
  EXPECT_EQ(-1, delete_with(url("K3") + ",," + url("K1")));
  EXPECT_EQ(registry, root.read(kShareRegistryPath));
  EXPECT_EQ("", root.read(std::string(kShareRegistryPath) + ".del"));

  // An item of 256 bytes cannot be read; items after it still can.
  root.remove(std::string(kShareRegistryPath) + ".del");
  EXPECT_EQ(-1, delete_with(url("K1") + "," + url(std::string(250, 'x')) + "," + url("K3")));
  EXPECT_EQ(registry, root.read(kShareRegistryPath));
  root.remove(std::string(kShareRegistryPath) + ".del");
  EXPECT_EQ(1, delete_with(url("K1") + "," + url("K2") + "," + url(std::string(220, 'x')) + "," + url("K3")));
  // The long id's tail stays behind "K3" in the id buffer, so K3 no longer
  // matches.
  EXPECT_EQ(k3, root.read(kShareRegistryPath));
}

}  // namespace

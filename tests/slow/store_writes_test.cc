// Parallel adds of one key, and the clean-up of twenty thousand links whose files vanished.
#include <gtest/gtest.h>
#include <thread>
#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {
// The links, files and recipients of `key` (all keys when empty), counted.
std::string counts(const ApplianceRoot& root, const std::string& key) {
  std::string sql = "SELECT ''";
  for (const char* t : {"EVENT", "FID", "USER"}) {
    sql += std::string(" || (SELECT COUNT(*) FROM SHARELINK_") + t + (key.empty() ? "" : " WHERE pkey = '" + key + "'") + ") || ','";
  }
  return store_value(root, sql);
}
TEST(SlowStoreWrites, OfTwoParallelAddsOfOneKeyExactlyOneSucceeds) {
  ApplianceRoot root; ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root).status);
  for (int round = 0; round < 5; ++round) {
    const std::string key = "race" + std::to_string(round), n[] = {"0", "1"};
    RunResult results[2]; std::thread adders[2];
    for (int i = 0; i < 2; ++i) {
      adders[i] = std::thread([&, i] {
        results[i] = run_program(ctl_binary(), {"add", key, "/share/P" + n[i], "--fid", n[i] + ":/p", "--recipient", "amy:a@x"}, root);
      });
    }
    for (std::thread& t : adders) t.join();
    EXPECT_EQ(1, (results[0].status == 0) + (results[1].status == 0)) << round;
    EXPECT_EQ("sharelinkctl add: a link with key " + key + " exists already\n", results[results[0].status == 0].err);
    EXPECT_EQ("1,1,1,", counts(root, key));  // the files and recipients of one add only
  }
}
TEST(SlowStoreWrites, TwentyThousandVanishedLinksAreCleanedUpInBatches) {
  ApplianceRoot root; root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write("/share/Public/ann/kept.txt", "x"); make_store(root, true, false);
  std::vector<FixtureLink> links; std::vector<FixtureFid> fids; std::vector<FixtureUser> users;
  for (int i = 0; i <= 20000; ++i) {
    char key[16]; snprintf(key, sizeof key, "v%05d", i); links.emplace_back(key);
    links.back().creator = "Mirra:ann";
    links.back().sharefile = i == 20000 ? "/Public/ann/kept.txt" : "/Public/ann/gone.txt";
    fids.push_back({key, "f", links.back().sharefile}); users.push_back({key, "amy", "", "a@x"});
  }
  insert_links(root, links), insert_fids(root, fids), insert_users(root, users);
  RunResult r = run_program(tool_binary(), {"3", "-u", "ann"}, root);
  EXPECT_EQ(0, r.status) << r.err; EXPECT_EQ("1,1,1,", counts(root, ""));
  EXPECT_EQ("v20000", store_value(root, "SELECT pkey FROM SHARELINK_EVENT"));
}
}  // namespace

// The store's whole writes under load: parallel adds of one key, and the
// clean-up of twenty thousand links whose files vanished.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

TEST(SlowStoreWrites, OfTwoParallelAddsOfOneKeyExactlyOneSucceeds) {
  ApplianceRoot root;
  ASSERT_EQ(0, run_program(ctl_binary(), {"init"}, root).status);
  for (int round = 0; round < 5; ++round) {
    const std::string key = "race" + std::to_string(round);
    RunResult results[2];
    std::vector<std::thread> adders;
    for (int i = 0; i < 2; ++i) {
      adders.emplace_back([&, i] {
        results[i] = run_program(ctl_binary(), {"add", key, "/share/P" + std::to_string(i), "--fid",
                                                std::to_string(i) + ":/p", "--recipient", "amy:a@x"},
                                 root);
      });
    }
    for (std::thread& t : adders) t.join();
    EXPECT_EQ(1, (results[0].status == 0) + (results[1].status == 0)) << round;
    const RunResult& lost = results[0].status == 0 ? results[1] : results[0];
    EXPECT_EQ("sharelinkctl add: a link with key " + key + " exists already\n", lost.err);
    // The one link has the files and recipients of one add only.
    EXPECT_EQ("1,1,1", store_value(root, "SELECT (SELECT COUNT(*) FROM SHARELINK_EVENT WHERE pkey = '" +
                                             key + "') || ',' || (SELECT COUNT(*) FROM SHARELINK_FID WHERE pkey = '" +
                                             key + "') || ',' || (SELECT COUNT(*) FROM SHARELINK_USER WHERE pkey = '" +
                                             key + "')"));
  }
}

TEST(SlowStoreWrites, TwentyThousandVanishedLinksAreCleanedUpInBatches) {
  ApplianceRoot root;
  root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
  root.write("/share/Public/ann/kept.txt", "x");
  make_store(root, true, false);
  std::vector<FixtureLink> links;
  std::vector<FixtureFid> fids;
  std::vector<FixtureUser> users;
  for (int i = 0; i <= 20000; ++i) {
    char key[16];
    snprintf(key, sizeof key, "v%05d", i);
    FixtureLink link(key);
    link.creator = "Mirra:ann";
    link.sharefile = i == 20000 ? "/Public/ann/kept.txt" : "/Public/ann/gone.txt";
    links.push_back(link);
    fids.push_back({key, "f", link.sharefile});
    users.push_back({key, "amy", "", "a@x"});
  }
  insert_links(root, links);
  insert_fids(root, fids);
  insert_users(root, users);
  RunResult r = run_program(tool_binary(), {"3", "-u", "ann"}, root);
  EXPECT_EQ(0, r.status) << r.err;
  EXPECT_EQ("v20000,1,1", store_value(root, "SELECT group_concat(pkey) || ',' || (SELECT COUNT(*) FROM "
                                            "SHARELINK_FID) || ',' || (SELECT COUNT(*) FROM SHARELINK_USER) "
                                            "FROM SHARELINK_EVENT"));
}

}  // namespace

// Mode 3 end to end: the XML page byte for byte, and the clean-up before it.
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "support/appliance.h"
#include "support/store_fixture.h"

namespace {

const char kHost[] = "nas.example:8080";

class ListingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n[Stunnel]\nPort = 443\n");
    root.write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n");
    root.write("/share/Public/ann/a.txt", "aaaa");
    root.write("/share/Public/ann/b.txt", "bb");
    make_store(root, /*with_acx=*/true);
    root.write("/tmp/.kdx_sf_clean_flag", "");
  }

  RunResult list(const std::vector<std::string>& options) {
    std::vector<std::string> args{"3"};
    args.insert(args.end(), options.begin(), options.end());
    return run_program(tool_binary(), args, root, {{"HTTP_HOST", kHost}});
  }

  static FixtureLink link(const std::string& key, const std::string& creator,
                          const std::string& sharefile, const std::string& name) {
    FixtureLink l(key);
    l.creator = creator;
    l.sharefile = sharefile;
    l.link_name = name;
    l.createtic = 1700000000;
    l.useraddr = "bob@x.example";
    l.download_count = 3;
    return l;
  }

  static std::string row(const std::string& ssid, const std::string& path, const std::string& file,
                         const std::string& url, const std::string& name, const std::string& creator,
                         const std::string& addressee = "bob@x.example", const std::string& count = "3") {
    return "\t\t<log>\n"
           "\t\t\t<ssid><![CDATA[" + ssid + "]]></ssid>\n"
           "\t\t\t<path><![CDATA[" + path + "]]></path>\n"
           "\t\t\t<filename><![CDATA[" + file + "]]></filename>\n"
           "\t\t\t<download_link><![CDATA[" + url + "]]></download_link>\n"
           "\t\t\t<link_name><![CDATA[" + name + "]]></link_name>\n"
           "\t\t\t<start_time><![CDATA[1700000000]]></start_time>\n"
           "\t\t\t<expire_time><![CDATA[0]]></expire_time>\n"
           "\t\t\t<addressee><![CDATA[" + addressee + "]]></addressee>\n"
           "\t\t\t<creator><![CDATA[" + creator + "]]></creator>\n"
           "\t\t\t<download_count><![CDATA[" + count + "]]></download_count>\n"
           "\t\t</log>\n";
  }

  static std::string url(const std::string& key) {
    return "http://nas.example:8080/share.cgi?ssid=" + key;
  }

  void ann_links(int n) {
    std::vector<FixtureLink> links;
    for (int i = 0; i < n; ++i) {
      std::string key = "K" + std::to_string(i);
      links.push_back(link(key, "Mirra:ann", "/Public/ann/" + std::to_string(i) + ".txt", "n" + key));
    }
    insert_links(root, links);
  }

  ApplianceRoot root;
};

TEST_F(ListingTest, PrintsAPageOfTwoRows) {
  insert_links(root, {link("K1", "Mirra:ann", "/Public/ann/a.txt", "report"),
                      link("K2", "Mirra:ann", "/Public/ann/b.txt", "----"),
                      link("K3", "Mirra:bob", "/Public/ann/a.txt", "other"),
                      link("K4", "ann", "/Public/ann/a.txt", "plain owner")});
  RunResult r = list({"-m", "6", "-s", "0", "-n", "20", "-u", "ann"});
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("\t<count>2</count>\n\t<data>\n" +
                row("K1", "/Public/ann", "a.txt", url("K1"), "report", "ann") +
                row("K2", "/Public/ann", "b.txt", url("K2"), "b.txt", "ann") +
                "\t</data>\n\t<ret>0</ret>\n",
            r.out);
  EXPECT_EQ("", r.err);
}

TEST_F(ListingTest, PageDecisions) {
  ann_links(7);
  EXPECT_EQ("\t<count>0</count>\n\t<ret>7</ret>\n", list({"-u", "ann"}).out);
  EXPECT_EQ("\t<count>7</count>\n\t<data>\n\t</data>\n\t<ret>0</ret>\n",
            list({"-u", "ann", "-s", "7", "-n", "5"}).out);
  EXPECT_EQ("\t<count>0</count>\n\t<ret>-5</ret>\n"
            "\t<count>7</count>\n\t<data>\n\t</data>\n\t<ret>0</ret>\n",
            list({"-u", "ann", "-s", "8", "-n", "5"}).out);
  RunResult tail = list({"-u", "ann", "-s", "5", "-n", "10", "-m", "0"});
  EXPECT_EQ("\t<count>7</count>\n\t<data>\n" +
                row("K5", "/Public/ann", "5.txt", url("K5"), "nK5", "ann") +
                row("K6", "/Public/ann", "6.txt", url("K6"), "nK6", "ann") +
                "\t</data>\n\t<ret>0</ret>\n",
            tail.out);
  EXPECT_EQ("\t<count>7</count>\n\t<ret>-11</ret>\n", list({"-u", "ann", "-n", "5", "-m", "38"}).out);
  EXPECT_EQ("\t<count>7</count>\n\t<ret>-11</ret>\n", list({"-u", "ann", "-n", "5", "-s", "-1"}).out);
}

TEST_F(ListingTest, NameFilterBindsLooserThanTheCreatorAlternative) {
  insert_links(root, {link("K1", "Mirra:ann", "/Public/ann/a.txt", "report 1"),
                      link("K2", "Mirra:ann", "/Public/ann/b.txt", "photos"),
                      link("K3", "Mirra:Mirra:ann", "/Public/ann/b.txt", "holiday")});
  RunResult r = list({"-u", "ann", "-n", "10", "-f", "report", "-m", "0"});
  EXPECT_EQ("\t<count>2</count>\n\t<data>\n" +
                row("K1", "/Public/ann", "a.txt", url("K1"), "report 1", "ann") +
                row("K3", "/Public/ann", "b.txt", url("K3"), "holiday", "Mirra:ann") +
                "\t</data>\n\t<ret>0</ret>\n",
            r.out);
}

TEST_F(ListingTest, DisplayPathsOfTeamFoldersSyncFoldersAndBareNames) {
  root.script("/sbin/mirrasrv_tool",
              "if [ \"$1\" = -8 ] && [ \"$2\" = tfx://Team1/doc/a.txt ]; then printf /share/Team/doc/a.txt; fi\n");
  insert_links(root, {link("K1", "Mirra:ann", "tfx://Team1/doc/a.txt", "a.txt"),
                      link("K2", "Mirra:ann", "tfx://Team2/x.txt", "gone"),
                      link("K3", "Mirra:ann", "/share/homes/ann/.Mirra/work/b.txt", "b.txt"),
                      link("K4", "Mirra:ann", "noslash.txt", "bare"),
                      link("K5", "Mirra:ann", "/share/Public/", "")});
  RunResult r = list({"-u", "ann", "-n", "10", "-m", "0"});
  EXPECT_EQ("\t<count>5</count>\n\t<data>\n" +
                row("K1", "/share/Team/doc", "a.txt", url("K1"), "a.txt", "ann") +
                row("K2", "Mirra", "gone", url("K2"), "gone", "ann") +
                row("K3", "Mirra/work", "b.txt", url("K3"), "b.txt", "ann") +
                row("K4", ".", "noslash.txt", url("K4"), "bare", "ann") +
                row("K5", "/share", "Public", url("K5"), ".", "ann") +
                "\t</data>\n\t<ret>0</ret>\n",
            r.out);
}

TEST_F(ListingTest, RowWithAnEmptyKeyPrintsPlaceholders) {
  insert_links(root, {link("", "Mirra:ann", "/Public/ann/a.txt", "x")});
  EXPECT_EQ("\t<count>1</count>\n\t<data>\n" + row("---", ".", "---", "---", "---", "Unknown", "---", "0") +
                "\t</data>\n\t<ret>0</ret>\n",
            list({"-u", "ann", "-n", "5"}).out);
}

TEST_F(ListingTest, ExpiredLinksGoLinksThatNeverExpireStay) {
  long now = static_cast<long>(time(nullptr));
  FixtureLink old_link = link("K1", "Mirra:ann", "/Public/ann/a.txt", "old");
  old_link.expire = static_cast<int>(now - 100);
  FixtureLink forever = link("K2", "Mirra:ann", "/Public/ann/a.txt", "forever");
  FixtureLink later = link("K3", "bob", "/Public/ann/a.txt", "later");
  later.expire = static_cast<int>(now + 3600);
  insert_links(root, {old_link, forever, later});
  RunResult r = list({"-u", "ann", "-n", "5"});
  EXPECT_EQ("\t<count>1</count>\n\t<data>\n" +
                row("K2", "/Public/ann", "a.txt", url("K2"), "forever", "ann") +
                "\t</data>\n\t<ret>0</ret>\n",
            r.out);
  EXPECT_EQ("K2,K3", store_value(root, "SELECT group_concat(pkey) FROM (SELECT pkey FROM "
                                       "SHARELINK_EVENT ORDER BY pkey)"));
}

TEST_F(ListingTest, CleanUpRemovesSyncOwnersLinksWhosePathIsGone) {
  insert_links(root, {link("GONE", "Mirra:ann", "/Public/ann/missing.txt", "g"),
                      link("KEEP", "ann", "/Public/ann/missing.txt", "k"),
                      link("LIVE", "Mirra:ann", "/Public/ann/a.txt", "l")});
  insert_fids(root, {{"GONE", "f1", "/Public/ann/missing.txt"}, {"LIVE", "f2", "/Public/ann/a.txt"}});
  insert_users(root, {{"GONE", "carl", "d", "c@x.example"}, {"KEEP", "carl", "d", "c@x.example"}});
  store_exec(root, "INSERT INTO SHARELINK_ACX VALUES ('GONE', 'a1'), ('KEEP', 'a2');");
  root.remove("/tmp/.kdx_sf_clean_flag");

  EXPECT_EQ(0, list({"-u", "ann"}).status);
  auto keys = [&](const char* table) {
    return store_value(root, std::string("SELECT ifnull(group_concat(pkey), '') FROM (SELECT pkey FROM ") +
                                 table + " ORDER BY pkey)");
  };
  EXPECT_EQ("KEEP,LIVE", keys("SHARELINK_EVENT"));
  EXPECT_EQ("LIVE", keys("SHARELINK_FID"));
  EXPECT_EQ("KEEP", keys("SHARELINK_USER"));
  EXPECT_EQ("KEEP", keys("SHARELINK_ACX"));
  EXPECT_TRUE(root.exists("/tmp/.kdx_sf_clean_flag"));
}

TEST_F(ListingTest, CleanUpRunsAtMostOncePerMinute) {
  time_t now = time(nullptr);
  auto orphan = [&](const std::string& key) {
    insert_links(root, {link(key, "Mirra:ann", "/Public/ann/missing.txt", key)});
  };
  auto present = [&](const std::string& key) {
    return store_value(root, "SELECT count(*) FROM SHARELINK_EVENT WHERE pkey = '" + key + "'") == "1";
  };
  orphan("O1");
  root.set_mtime("/tmp/.kdx_sf_clean_flag", now - 30);
  list({"-u", "ann"});
  EXPECT_TRUE(present("O1")) << "a pass 30 s ago throttles this one";

  root.set_mtime("/tmp/.kdx_sf_clean_flag", now - 61);
  list({"-u", "ann"});
  EXPECT_FALSE(present("O1")) << "61 s after the last pass a new one runs";

  orphan("O2");
  list({"-u", "ann"});
  EXPECT_TRUE(present("O2"));

  root.set_mtime("/tmp/.kdx_sf_clean_flag", now + 600);
  list({"-u", "ann"});
  EXPECT_FALSE(present("O2")) << "a flag time in the future does not suppress the pass";
}

}  // namespace

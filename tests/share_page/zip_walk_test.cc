// The plan behind every archive and the folder walk that fills it: names
// across name-block ends, hidden and excluded entries, work linear in the
// entries of a deep tree, the depth cap, and a walk stopped when the client
// has gone.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/os.h"
#include "support/appliance.h"
#include "support/zip_share.h"
#include "zipstream/zipstream.h"

namespace {

int g_openats = 0;
int counted_openat(int dirfd, const char* p, int flags, mode_t mode) {
  ++g_openats;
  return ::openat(dirfd, p, flags, mode);
}

// `len` bytes, told apart from its neighbours by its letter and number.
std::string name_of(size_t len, size_t i) {
  std::string s(len, static_cast<char>('a' + i % 26));
  const std::string n = std::to_string(i);
  if (n.size() <= len) s.replace(len - n.size(), n.size(), n);
  return s;
}

// Accepts the archive's bytes and nothing else.
class StringSink : public ZipSink {
 public:
  bool write(const void* data, size_t len) override {
    bytes.append(static_cast<const char*>(data), len);
    return true;
  }
  std::string bytes;
};

std::vector<std::string> names(const ZipPlan& plan) {
  std::vector<std::string> out;
  for (size_t i = 0; i < plan.count(); ++i) out.emplace_back(plan.name(i), plan.entry(i).name_len);
  return out;
}

// Names that end a block exactly (64 and 128 bytes) or not (100), counts
// around the end of the first and second block; then small blocks, every
// name length up to one past theirs.
TEST(ZipPlanNames, EveryNameReadsBackAcrossBlockEnds) {
  for (size_t len : {64u, 100u, 128u}) {
    const size_t fit = ZipPlan::kNameBlock / len;
    for (size_t count : {fit - 1, fit, fit + 1, fit + 2, 2 * fit, 2 * fit + 1}) {
      ZipPlan plan;
      for (size_t i = 0; i < count; ++i) ASSERT_TRUE(plan.add(name_of(len, i).data(), len, false, 1, 0));
      for (size_t i = 0; i < count; ++i) {
        ASSERT_EQ(name_of(len, i), std::string(plan.name(i), len)) << len << " bytes, " << count << " names";
      }
    }
  }
  for (uint32_t block : {1u, 7u, 16u}) {
    for (size_t len = 1; len <= block + 1; ++len) {
      ZipPlan plan(block);
      for (size_t i = 0; i < 3 * block + 1; ++i) {
        ASSERT_EQ(len <= block, plan.add(name_of(len, i).data(), len, false, 1, 0)) << block << "/" << len;
      }
      for (size_t i = 0; i < plan.count(); ++i) ASSERT_EQ(name_of(len, i), std::string(plan.name(i), len));
    }
  }
}

class ZipWalk : public ::testing::Test {
 protected:
  void SetUp() override { root_.mkdirs("/d"); }
  void TearDown() override {
    os_reset();
    if (dir_ >= 0) close(dir_);
    remove_deep_chain(root_, "/d");
  }
  int dir() {
    if (dir_ < 0) dir_ = open(root_.path("/d").c_str(), O_RDONLY | O_DIRECTORY);
    return dir_;
  }
  std::pair<dev_t, ino_t> id(const std::string& rel) {
    struct stat st;
    EXPECT_EQ(0, lstat(root_.path("/d/" + rel).c_str(), &st)) << rel;
    return {st.st_dev, st.st_ino};
  }
  // Streams the plan from the folder; true when the whole archive went out.
  bool stream(ZipPlan* plan, const FolderWalk* walk, std::string* bytes = nullptr) {
    StringSink sink;
    FolderSource source(dir(), nullptr, walk);
    const bool ok = zip_stream(plan, &source, &sink);
    if (bytes != nullptr) *bytes = sink.bytes;
    return ok && sink.bytes.size() == plan->total_size();
  }

  ApplianceRoot root_;
  int dir_ = -1;
};

// Sorted within each folder, each folder's contents after its parent's,
// so an unchanged folder gives the same archive; nothing hidden, at any depth.
TEST_F(ZipWalk, SortedDepthFirstWithoutHiddenNames) {
  for (const char* f : {"b.txt", "a/z.txt", "a/.git/config", ".env", ".@__thumb/t.jpg", "c/d/e.txt",
                        "A.txt", "c/.hidden/x", "c/d/.x"}) {
    root_.write(std::string("/d/") + f, f);
  }
  root_.mkdirs("/d/a/b");
  ZipPlan plan;
  ASSERT_EQ(PlanStatus::kPlanned, plan_folder(dir(), &plan));
  EXPECT_EQ((std::vector<std::string>{"A.txt", "a/", "b.txt", "c/", "a/b/", "a/z.txt", "c/d/", "c/d/e.txt"}),
            names(plan));
  std::string first, again;
  ASSERT_TRUE(stream(&plan, nullptr, &first));
  ZipPlan replan;
  ASSERT_EQ(PlanStatus::kPlanned, plan_folder(dir(), &replan));
  ASSERT_TRUE(stream(&replan, nullptr, &again));
  EXPECT_EQ(first, again);
}

// The store's folder and a companion file are neither listed nor entered,
// nor is a hard link to it, nor a planned file swapped for one afterwards.
TEST_F(ZipWalk, ExcludedFilesAndFoldersNeverGoOut) {
  const std::string key = "0123456789abcdef";
  root_.write("/d/keep.txt", "kept"), root_.write("/d/store/db", "codes"), root_.write("/d/store/sub/x", "x");
  root_.write("/d/secret", key), root_.write("/d/other/ok.txt", std::string(key.size(), 'o'));
  ASSERT_EQ(0, link(root_.path("/d/secret").c_str(), root_.path("/d/other/linked").c_str()));
  FolderWalk walk;
  walk.excluded = {id("store"), id("secret")};
  ZipPlan plan;
  ASSERT_EQ(PlanStatus::kPlanned, plan_folder(dir(), &plan, walk));
  EXPECT_EQ((std::vector<std::string>{"keep.txt", "other/", "other/ok.txt"}), names(plan));

  ASSERT_EQ(0, rename(root_.path("/d/other/linked").c_str(), root_.path("/d/other/ok.txt").c_str()));
  std::string bytes;
  EXPECT_FALSE(stream(&plan, &walk, &bytes));
  EXPECT_EQ(std::string::npos, bytes.find(key));

  FolderWalk top;
  top.excluded = {id(".")};
  EXPECT_EQ(PlanStatus::kFailed, plan_folder(dir(), &plan, top));
}

// Each folder is opened once, from its parent, in planning and in sending:
// a tree as deep as allowed costs opens in proportion to its entries.
TEST_F(ZipWalk, DeepTreesCostOpensInProportionToTheirEntries) {
  make_deep_chain(root_, "/d", kMaxFolderDepth, true);
  os.openat = counted_openat;
  ZipPlan plan;
  ASSERT_EQ(PlanStatus::kPlanned, plan_folder(dir(), &plan));
  EXPECT_EQ(2u * kMaxFolderDepth, plan.count());
  EXPECT_LE(g_openats, kMaxFolderDepth);
  g_openats = 0;
  EXPECT_TRUE(stream(&plan, nullptr));
  EXPECT_LE(static_cast<size_t>(g_openats), plan.count());
}

// One level more than allowed refuses the archive, and a far deeper tree
// costs no more than that to find out.
TEST_F(ZipWalk, TreesDeeperThanTheCapAreRefusedEarly) {
  for (int depth : {kMaxFolderDepth + 1, 1000}) {
    remove_deep_chain(root_, "/d");
    make_deep_chain(root_, "/d", depth, false);
    g_openats = 0;
    os.openat = counted_openat;
    ZipPlan plan;
    EXPECT_EQ(PlanStatus::kTooDeep, plan_folder(dir(), &plan)) << depth;
    EXPECT_LE(g_openats, kMaxFolderDepth) << depth;
    os_reset();
  }
}

// A client gone ends planning within a few hundred entries, and sending at
// the next file.
TEST_F(ZipWalk, AWalkStopsWhenTheClientHasGone) {
  for (int i = 0; i < 1000; ++i) root_.write("/d/f" + std::to_string(i), "x");
  bool gone = false;
  FolderWalk walk;
  walk.stop = [&gone] { return gone; };
  ZipPlan plan;
  ASSERT_EQ(PlanStatus::kPlanned, plan_folder(dir(), &plan, walk));
  ASSERT_EQ(1000u, plan.count());
  gone = true;
  std::string bytes;
  EXPECT_FALSE(stream(&plan, &walk, &bytes));
  EXPECT_LT(bytes.size(), 100u);  // the first local header, no file's bytes
  ZipPlan cut;
  EXPECT_EQ(PlanStatus::kStopped, plan_folder(dir(), &cut, walk));
  EXPECT_LT(cut.count(), 300u);
}

}  // namespace

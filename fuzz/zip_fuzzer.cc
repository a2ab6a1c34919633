// The zip planner and writer: entry lists from the input, with sizes around
// the 4 GiB bound (counts around 65,535 take too long per input here; the
// slow test's 70,000-file archive covers them with three readers), planned
// with name blocks of 8 to 71 bytes so that a few entries cross several
// block ends; every name must read back as added. The streamed length must
// equal the planned one, and the archive must parse back: end records (ZIP64
// ones exactly when needed), every central entry pointing at its local
// header, names, sizes and data descriptors agreeing. File bytes are not
// produced: the source reports each entry's data as a gap of its size.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "zipstream/zipstream.h"

namespace {

constexpr uint64_t k4G = 0xFFFFFFFFull;

// Keeps the records' bytes by offset; data gaps are only counted.
class GapSink : public ZipSink {
 public:
  bool write(const void* data, size_t len) override {
    if (len > 0) parts_[pos_].append(static_cast<const char*>(data), len);
    pos_ += len;
    return true;
  }
  void gap(uint64_t n) { pos_ += n; }
  uint64_t pos() const { return pos_; }
  // n bytes at off, which must lie inside one written record.
  bool at(uint64_t off, size_t n, std::string* out) const {
    auto it = parts_.upper_bound(off);
    if (it == parts_.begin()) return false;
    --it;
    if (off + n > it->first + it->second.size()) return false;
    *out = it->second.substr(off - it->first, n);
    return true;
  }

 private:
  std::map<uint64_t, std::string> parts_;
  uint64_t pos_ = 0;
};

class GapSource : public ZipSource {
 public:
  explicit GapSource(size_t fail_at) : fail_at_(fail_at) {}
  bool send(const ZipPlan& plan, size_t i, ZipSink* sink, uint32_t* crc) override {
    if (i == fail_at_) return false;
    static_cast<GapSink*>(sink)->gap(plan.entry(i).size);
    *crc = static_cast<uint32_t>(i * 2654435761u);
    return true;
  }

 private:
  size_t fail_at_;
};

uint64_t le(const std::string& s, size_t at, int n) {
  uint64_t v = 0;
  for (int k = n - 1; k >= 0; --k) v = v << 8 | static_cast<unsigned char>(s[at + k]);
  return v;
}

#define CHECK(c)                                           \
  do {                                                     \
    if (!(c)) {                                            \
      fprintf(stderr, "zip_fuzzer: check failed: %s\n", #c); \
      abort();                                             \
    }                                                      \
  } while (0)

void check_archive(const ZipPlan& plan, const GapSink& sink) {
  const uint64_t total = sink.pos();
  std::string end, rec;
  CHECK(sink.at(total - 22, 22, &end) && le(end, 0, 4) == 0x06054b50);
  uint64_t count = le(end, 10, 2), cd_size = le(end, 12, 4), cd_off = le(end, 16, 4);
  uint64_t cd_end = total - 22;
  const bool z64 = plan.count() >= 0xFFFF || count == 0xFFFF || cd_size == k4G || cd_off == k4G;
  if (z64) {
    CHECK(sink.at(total - 42, 20, &rec) && le(rec, 0, 4) == 0x07064b50);
    cd_end = le(rec, 8, 8);
    CHECK(cd_end == total - 98 && sink.at(cd_end, 56, &rec) && le(rec, 0, 4) == 0x06064b50);
    count = le(rec, 32, 8);
    cd_size = le(rec, 40, 8);
    cd_off = le(rec, 48, 8);
    CHECK(count >= 0xFFFF || cd_size >= k4G || cd_off >= k4G);  // only when needed
  }
  CHECK(count == plan.count() && cd_off + cd_size == cd_end);
  uint64_t p = cd_off, next_local = 0;
  for (size_t i = 0; i < plan.count(); ++i) {
    const ZipPlan::Entry& e = plan.entry(i);
    CHECK(sink.at(p, 46, &rec) && le(rec, 0, 4) == 0x02014b50);
    const size_t n = le(rec, 28, 2), extra = le(rec, 30, 2);
    CHECK(n == e.name_len && le(rec, 8, 2) == (e.dir ? 0x0800u : 0x0808u) && le(rec, 10, 2) == 0);
    CHECK(le(rec, 16, 4) == e.crc);
    uint64_t size = le(rec, 24, 4), csize = le(rec, 20, 4), off = le(rec, 42, 4);
    std::string ex;
    CHECK(sink.at(p + 46 + n, extra, &ex) || extra == 0);
    size_t q = 4;
    CHECK((size == k4G) == (e.size >= k4G) && (off == k4G) == (next_local >= k4G));
    CHECK(extra == (size == k4G || off == k4G ? 4 + (size == k4G ? 16 : 0) + (off == k4G ? 8 : 0) : 0));
    if (size == k4G) {
      size = le(ex, q, 8);
      csize = le(ex, q + 8, 8);
      q += 16;
    }
    if (off == k4G) off = le(ex, q, 8);
    CHECK(size == e.size && csize == e.size && off == next_local);
    std::string cname, lname;
    CHECK(sink.at(p + 46, n, &cname));
    CHECK(cname.find('\\') == std::string::npos && cname[0] != '/');
    CHECK(sink.at(off, 30 + n, &rec) && le(rec, 0, 4) == 0x04034b50 && le(rec, 26, 2) == n);
    CHECK(rec.substr(30) == cname);
    const size_t lextra = le(rec, 28, 2);
    CHECK(lextra == (e.size >= k4G ? 20u : 0u));
    uint64_t data_end = off + 30 + n + lextra + e.size;
    if (!e.dir) {
      const int w = e.size >= k4G ? 8 : 4;
      CHECK(sink.at(data_end, 8 + 2 * w, &rec) && le(rec, 0, 4) == 0x08074b50);
      CHECK(le(rec, 4, 4) == e.crc && le(rec, 8, w) == e.size && le(rec, 8 + w, w) == e.size);
      data_end += 8 + 2 * w;
    }
    next_local = data_end;
    p += 46 + n + extra;
  }
  CHECK(next_local == cd_off && p == cd_end);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const uint64_t kSizes[] = {0, 1, 0xFFFE, 0xFFFF, 0x10000, k4G - 1, k4G, k4G + 1,
                                    1ull << 32, 5ull << 30, 1ull << 40, 12345};
  if (size < 2) return 0;
  const uint32_t block = 8 + data[0] % 64;
  ZipPlan plan(block);
  std::vector<std::string> added;
  size_t pos = 2;
  // Entries: [kind/size byte][name length][name bytes].
  while (pos + 2 <= size) {
    const uint8_t kind = data[pos];
    size_t n = data[pos + 1] % 40;
    pos += 2;
    if (pos + n > size) n = size - pos;
    std::string name(reinterpret_cast<const char*>(data + pos), n);
    pos += n;
    const bool dir = kind & 0x80;
    if (dir) name += "/";
    uint64_t sz = kSizes[(kind & 0x7F) % (sizeof kSizes / sizeof kSizes[0])];
    if (plan.add(name.data(), name.size(), dir, sz, static_cast<time_t>(kind) * 86400 * 400)) {
      CHECK(name.size() <= block);
      added.push_back(name);
    }
  }
  CHECK(plan.count() == added.size());
  for (size_t i = 0; i < plan.count(); ++i) {
    CHECK(std::string(plan.name(i), plan.entry(i).name_len) == added[i]);
  }
  const size_t fail_at = data[1] < 16 ? data[1] : static_cast<size_t>(-1);
  const uint64_t planned = plan.total_size();
  GapSink sink;
  GapSource source(fail_at);
  const bool ok = zip_stream(&plan, &source, &sink);
  bool fails = false;
  for (size_t i = 0; i < plan.count(); ++i) fails |= i == fail_at && !plan.entry(i).dir;
  CHECK(ok == !fails);
  if (!ok) {
    CHECK(sink.pos() < planned);  // stopped short, never a whole archive
    return 0;
  }
  CHECK(sink.pos() == planned);
  check_archive(plan, sink);
  return 0;
}

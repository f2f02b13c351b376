// Everything the library hands to a caller must come back through the caller's free functions.
// The library also keeps process-wide state that it makes on first use and never frees (the
// parameter-file name table, the units table, the port table, the site time formats, the
// installation root, the register's own storage), so one round over every family cannot be
// judged by itself: the round runs twice, and the second must leave the heap exactly as the
// first left it. An object the library forgets to free, or a free function that leaves part of
// its object behind, shows as growth.
#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "corvel/arr.h"
#include "corvel/bns.h"
#include "corvel/checksum.h"
#include "corvel/codec.h"
#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/gzopen.h"
#include "corvel/net.h"
#include "corvel/pf.h"
#include "corvel/port.h"
#include "corvel/ring.h"
#include "corvel/tbl.h"
#include "corvel/text.h"
#include "corvel/time.h"
#include "corvel/units.h"

// A sanitizer that replaces the allocator keeps its own count of the bytes in use.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LEAK_TEST_SANITIZER_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LEAK_TEST_SANITIZER_HEAP 1
#endif
#endif

#ifdef LEAK_TEST_SANITIZER_HEAP
#if __has_include(<sanitizer/allocator_interface.h>)
#include <sanitizer/allocator_interface.h>
#else
// Not every compiler installs the sanitizers' headers; the runtime has the function all the same.
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif
#endif

#ifndef LEAK_TEST_SANITIZER_HEAP
// The C library keeps blocks freed lately in per-thread caches that its own statistics count
// as in use, so they cannot tell a freed block from a kept one. This program's allocator
// instead counts the blocks and bytes it has handed out and not yet been given back: the
// test's measure when no sanitizer owns the allocator.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);
}

namespace {

std::atomic<long> live_blocks{0};
std::atomic<long> live_bytes{0};

void *Counted(void *block) {
  if (block != nullptr) {
    live_blocks++;
    live_bytes += static_cast<long>(malloc_usable_size(block));
  }
  return block;
}

void Uncount(void *block) {
  if (block != nullptr) {
    live_blocks--;
    live_bytes -= static_cast<long>(malloc_usable_size(block));
  }
}

}  // namespace

extern "C" {
void *malloc(size_t size) __THROW { return Counted(__libc_malloc(size)); }
void *calloc(size_t count, size_t size) __THROW { return Counted(__libc_calloc(count, size)); }
void *realloc(void *block, size_t size) __THROW {
  Uncount(block);
  void *moved = __libc_realloc(block, size);
  // A failed enlargement leaves the block where it was; a zero size frees it.
  if (moved == nullptr && size != 0) return Counted(block);
  return Counted(moved);
}
void free(void *block) __THROW {
  Uncount(block);
  __libc_free(block);
}
void *memalign(size_t alignment, size_t size) __THROW {
  return Counted(__libc_memalign(alignment, size));
}
void *aligned_alloc(size_t alignment, size_t size) __THROW {
  return Counted(__libc_memalign(alignment, size));
}
int posix_memalign(void **block, size_t alignment, size_t size) __THROW {
  void *aligned = __libc_memalign(alignment, size);
  if (aligned == nullptr) return ENOMEM;
  *block = Counted(aligned);
  return 0;
}
}
#endif

namespace corvel {
namespace port {
namespace {

// What the program holds on the heap: blocks and bytes handed out and not yet freed.
struct Heap {
  long blocks;
  long bytes;
};

Heap HeapInUse() {
#ifdef LEAK_TEST_SANITIZER_HEAP
  return Heap{0, static_cast<long>(__sanitizer_get_current_allocated_bytes())};
#else
  return Heap{live_blocks.load(), live_bytes.load()};
#endif
}

int CompareStrings(const void *a, const void *b) {
  return strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

int CompareSlots(void *a, void *b, void *) {
  return strcmp(*static_cast<char **>(a), *static_cast<char **>(b));
}

void Containers() {
  Tbl *t = newtbl(0);
  for (const char *s : {"delta", "alpha", "charlie"}) pushtbl(t, strdup(s));
  unshifttbl(t, strdup("bravo"));
  instbl(t, 2, strdup("echo"));
  free(deltbl(t, 0));
  sorttbl(t, CompareSlots, nullptr);
  char *joined = jointbl(t, ",");
  EXPECT_STREQ(joined, "alpha,charlie,delta,echo");
  free(joined);
  Tbl *copy = duptbl(t, nullptr);
  Tbl *found = greptbl("[ce].*", t);
  EXPECT_EQ(maxtbl(found), 2);
  freetbl(found, nullptr);
  freetbl(copy, nullptr);
  freetbl(t, free);

  int values[] = {3, 1, 2};
  Tbl *direct = inittbl(0, 0, 1, nullptr, sizeof(int));
  for (int &v : values) pushtbl(direct, &v);
  freetbl(direct, nullptr);
  Tbl *words = strtbl("one", "two", static_cast<char *>(nullptr));
  freetbl(words, nullptr);

  Arr *a = newarr(nullptr);
  for (const char *k : {"BHZ", "BHN", "BHE", "LHZ"}) setarr(a, k, strdup(k));
  free(setarr(a, "BHZ", strdup("again")));
  free(delarr(a, "LHZ"));
  Tbl *keys = keysarr(a);
  Tbl *values_of = valsarr(a);
  Tbl *matching = greparr("BH.", a);
  EXPECT_EQ(maxtbl(matching), 3);
  freetbl(matching, nullptr);
  freetbl(values_of, nullptr);
  freetbl(keys, nullptr);
  Arr *same = duparr(a, nullptr);
  freearr(same, nullptr);
  freearr(a, free);

  Rbtree *tree = rbinit(CompareStrings);
  static const char *names[] = {"m", "c", "x", "a", "e"};
  for (const char *n : names) rbinsert(const_cast<char *>(n), nullptr, tree);
  rbdelete("c", tree);
  rbdestroy(tree);

  Stbl *sorted = newstbl(CompareStrings);
  for (const char *n : names) addstbl(sorted, const_cast<char *>(n));
  delstbl(sorted, const_cast<char *>("x"));
  EXPECT_EQ(maxtbl(tblstbl(sorted)), 4);  // the table's own list
  freestbl(sorted, nullptr);
}

void Register() {
  elog_log(0, "first %d", 1);
  elog_log(0, "second with a longer text %s", std::string(300, 'x').c_str());
  char *text = elog_string(0);
  EXPECT_NE(text, nullptr);
  free(text);
  char *formatted = elogstr(ELOG_COMPLAIN, 0, "a message of %s", "its own");
  free(formatted);
  elog_clear();
}

void ParameterFiles(const std::string &dir) {
  Pf *pf = nullptr;
  ASSERT_EQ(pfcompile("sta AAK\n"
                      "samprate 40.0\n"
                      "count 12\n"
                      "on yes\n"
                      "start 2024-02-01 12:00:00\n"
                      "path /data/&sta\n"
                      "chan &Arr{\n    BHZ 1\n    BHN 2\n}\n"
                      "list &Tbl{\n    one\n    two\n}\n",
                      &pf),
            0);
  EXPECT_STREQ(pfget_string(pf, "path"), "/data/AAK");
  EXPECT_EQ(pfget_int(pf, "count"), 12);
  EXPECT_EQ(pfget_double(pf, "samprate"), 40.0);
  EXPECT_NE(pfget_boolean(pf, "on"), 0);
  EXPECT_GT(pfget_time(pf, "start"), 0);
  freetbl(pfget_tbl(pf, "list"), nullptr);
  freearr(pfget_arr(pf, "chan"), nullptr);
  freetbl(pfkeys(pf), nullptr);
  pfput_string(pf, "net", "II");
  pfput_int(pf, "count", 13);
  pfset(pf, "chan{LHZ}", "3");
  pfset(pf, "list[3]", "four");
  char *value = nullptr;
  pfeval(pf, "path", &value);
  pffree(pfdel(pf, "on"));
  Pf *copy = pfdup(pf);
  EXPECT_EQ(pfcmp(pf, copy), 0);
  pffree(copy);
  char *text = pf2string(pf);
  free(text);
  char *quoted = str2pf("two words\nand a line");
  free(quoted);

  std::string name = dir + "/leak";
  ASSERT_EQ(pfwrite((name + ".pf").c_str(), pf), 0);
  Pf *read_back = nullptr;
  EXPECT_EQ(pfread(name.c_str(), &read_back), 0);
  pffree(read_back);
  pffree(pf);
  unlink((name + ".pf").c_str());
  elog_clear();
}

void Times() {
  const double t = 1706788800.25;
  for (char *s :
       {epoch2str("%Y-%m-%d %H:%M:%S.%s %j %A", t), strtime(t), strydtime(t), strdate(t),
        strlocaltime(t), strtdelta(12345.5), zepoch2str("%Y %H:%M %Z", "Europe/Berlin", t)}) {
    EXPECT_NE(s, nullptr);
    free(s);
  }
  EXPECT_EQ(str2epoch("2024-02-01 12:00:00.25"), t);
  double parsed = 0;
  zstr2epoch("2/1/2024 13:00 Europe/Berlin", &parsed);
  str2epoch("not a time at all");
  elog_clear();
}

void Text() {
  char *expanded = expand_env("$HOME/${LEAK_TEST_UNSET}/x");
  free(expanded);
  char line[] = "  a b  c ";
  Tbl *fields = split(line, ' ');
  EXPECT_EQ(maxtbl(fields), 3);
  freetbl(fields, nullptr);
  void *builder = nullptr;
  pushstr(&builder, "one ");
  pushstr(&builder, std::string(2000, 'b').c_str());
  free(popstr(&builder, 1));
  free(strconcat("a", "b", "c", static_cast<char *>(nullptr)));
  Hook *cache = nullptr;
  EXPECT_EQ(strmatches("BHZ", "BH.", &cache), 1);
  EXPECT_EQ(strmatches("LHZ", "ignored", &cache), 0);
  free_hook(&cache);
  free(newcs("abc   ", 6));
  unsigned char bytes[40];
  for (int i = 0; i < 40; i++) bytes[i] = static_cast<unsigned char>(i * 7);
  free(hexdump_string(bytes, sizeof bytes));
}

void Files(const std::string &dir) {
  free(concatpaths(dir.c_str(), "name"));
  char *unique = zqunique_filename((dir + "/u").c_str());
  ASSERT_NE(unique, nullptr);
  unlink(unique);
  free(unique);
  free(homedir(nullptr));
  std::string sub = dir + "/a/b";
  EXPECT_EQ(makedir(sub.c_str()), 0);
  Tbl *found = datasearch(dir.c_str(), "a", "b", 0);
  EXPECT_EQ(maxtbl(found), 1);
  freetbl(found, free);
  free(datafile("LEAK_TEST_PATH", "b"));
  rmdir(sub.c_str());
  rmdir((dir + "/a").c_str());
  getvelmora();
  elog_clear();
}

void Streams() {
  int fds[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  Bns *out = bnsnew(fds[0], 64);
  Bns *in = bnsnew(fds[1], 64);
  bnstimeout(in, 1000);
  int32_t numbers[3] = {1, -2, 3};
  double value = 2.5;
  bnsput(out, numbers, BNS_TYPE_INT32, 3);
  bnsput(out, &value, BNS_TYPE_DOUBLE, 1);
  bnsput(out, "line\n", BNS_TYPE_BYTES, 5);
  bnsflush(out);
  int32_t got[3];
  EXPECT_EQ(bnsget(in, got, BNS_TYPE_INT32, 3), 0);
  EXPECT_EQ(bnsget(in, &value, BNS_TYPE_DOUBLE, 1), 0);
  char text[16];
  EXPECT_GT(bnsgetc(in, text, sizeof text, '\n'), 0);
  bnsclose(out);
  bnsclose(in);
  elog_clear();
}

void Codecs() {
  int samples[300];
  for (int i = 0; i < 300; i++) samples[i] = (i * 37 % 101) - 50 + (i % 7) * 1000;

  unsigned char *packed = nullptr;
  int npacked = 0, packed_size = 0;
  ASSERT_EQ(gencompress(&packed, &npacked, &packed_size, samples, 300, 25), 0);
  int *unpacked = nullptr;
  int nunpacked = 0, unpacked_size = 0;
  genuncompress(&unpacked, &nunpacked, &unpacked_size, packed, npacked);
  EXPECT_EQ(nunpacked, 300);
  free(unpacked);
  free(packed);

  Zqbuf raw = {reinterpret_cast<unsigned char *>(samples), sizeof samples, 0};
  Zqbuf zipped = {nullptr, 0, 0}, unzipped = {nullptr, 0, 0};
  EXPECT_EQ(zqcompress(&raw, &zipped), 0);
  EXPECT_EQ(zqexpand(&zipped, &unzipped), 0);
  free(zipped.data);
  free(unzipped.data);

  unsigned char *canada = nullptr;
  int ncanada = 0, canada_size = 0;
  ccanada(samples, 300, &canada, &ncanada, &canada_size);
  int *decoded = nullptr;
  int ndecoded = 300, decoded_size = 0;
  EXPECT_EQ(ucanada(canada, ncanada, &decoded, &ndecoded, &decoded_size), 0);
  free(decoded);
  free(canada);

  char *gse = nullptr;
  int ngse = 0, gse_size = 0;
  cm6(samples, 300, &gse, &ngse, &gse_size);
  decoded = nullptr;
  decoded_size = 0;
  EXPECT_EQ(um6(gse, ngse, &decoded, &ndecoded, &decoded_size), 300);
  free(decoded);
  free(gse);

  unsigned char *ucsd = nullptr;
  int nucsd = 0, ucsd_size = 0;
  cucsd(samples, 300, &ucsd, &nucsd, &ucsd_size);
  int back[300];
  const unsigned char *cursor = ucsd;
  uucsd(back, &cursor, nucsd, 300);
  free(ucsd);

  uint32_t crc = 0;
  zq_crc32(&crc, samples, sizeof samples);
  zq_adler32(1, samples, sizeof samples);
  Zq_md5_ctx md5;
  zq_md5init(&md5);
  zq_md5update(&md5, samples, sizeof samples);
  unsigned char digest[16];
  zq_md5final(digest, &md5);
  Zq_sha_ctx sha;
  sha_init(&sha);
  sha_update(&sha, samples, sizeof samples);
  sha_final(&sha);
  char hex[41];
  mdhex(hex, digest, sizeof digest);
  elog_clear();
}

void CompressedFiles(const std::string &dir) {
  FILE *plain = gz_open((dir + "/plain").c_str());
  ASSERT_NE(plain, nullptr);
  fclose(plain);
  FILE *zipped = gz_open((dir + "/data.gz").c_str());
  ASSERT_NE(zipped, nullptr);
  char line[32] = "";
  EXPECT_NE(fgets(line, sizeof line, zipped), nullptr);
  fclose(zipped);
  elog_clear();
}

void Rings(const std::string &dir) {
  std::string path = dir + "/ring";
  ASSERT_EQ(newring(path.c_str(), "leak", 8, 0), 0);
  Ring *ring = openring(path.c_str(), nullptr, 8, 0);
  ASSERT_NE(ring, nullptr);
  for (int i = 0; i < 12; i++) pushring(ring, 1000.0 + i, i * 0.5);
  int n = 0;
  double mean = 0, deviation = 0;
  meanring(ring, &n, &mean, &deviation, 0);
  EXPECT_EQ(rmring(ring), 0);

  std::string ringlet_path = dir + "/ringlet";
  ASSERT_EQ(newringlet(ringlet_path.c_str(), 4, 16), 0);
  Ringlet *ringlet = openringlet(ringlet_path.c_str(), 4, 16);
  ASSERT_NE(ringlet, nullptr);
  char record[16] = "a record";
  for (int i = 0; i < 6; i++) pushringlet(ringlet, record);
  void *got = nullptr;
  EXPECT_EQ(getringlet(ringlet, 0, &got), 0);
  closeringlet(ringlet);
  unlink(ringlet_path.c_str());
  elog_clear();
}

void Units() {
  double result = 0;
  char toout[8 + UNITS_TOOUT_EXTRA];
  EXPECT_EQ(units_convert("km/hour", "m/s", &result, toout, 36), 0);
  EXPECT_DOUBLE_EQ(result, 10);
  units_convert("km", "kg", &result, nullptr, 1);
  freetbl(units_match("k"), free);
  elog_clear();
}

void Ports() {
  freetbl(zq_portnames(), nullptr);
  freetbl(zq_portbynumber(6510), free);
  char host[64];
  int port = 0;
  zq_parse_servername("somehost:6510", "6510", nullptr, host, &port, nullptr);
  elog_clear();
}

void Round(const std::string &dir) {
  Containers();
  Register();
  ParameterFiles(dir);
  Times();
  Text();
  Files(dir);
  Streams();
  Codecs();
  CompressedFiles(dir);
  Rings(dir);
  Units();
  Ports();
}

void WriteFile(const std::string &path, const std::string &text) {
  FILE *f = fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  fputs(text.c_str(), f);
  fclose(f);
}

TEST(LeakTest, SecondRoundOverEveryFamilyLeavesNothingBehind) {
  char pattern[] = "/tmp/leak_test.XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string dir = pattern;
  WriteFile(dir + "/plain", "plain text\n");
  WriteFile(dir + "/units",
            "Primitive m\nPrimitive kg\nPrimitive s\n"
            "km = 1000 m\nminute = 60 s\nhour = 60 minute\nkn = 1852 m/hour\n");
  ASSERT_EQ(system(("echo compressed | gzip -c > " + dir + "/data.gz").c_str()), 0);
  setenv("UNITS", dir.c_str(), 1);
  setenv("LEAK_TEST_PATH", dir.c_str(), 1);

  Round(dir);
  const Heap after_first = HeapInUse();
  Round(dir);
  const Heap after_second = HeapInUse();
  EXPECT_EQ(after_second.blocks - after_first.blocks, 0) << "blocks left by the second round";
  EXPECT_EQ(after_second.bytes - after_first.bytes, 0) << "bytes left by the second round";

  unsetenv("UNITS");
  unsetenv("LEAK_TEST_PATH");
  ASSERT_EQ(system(("rm -rf '" + dir + "'").c_str()), 0);
}

}  // namespace
}  // namespace port
}  // namespace corvel

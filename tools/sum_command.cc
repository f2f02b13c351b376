// corvel sum: checksums and digests of files, one line per file as md5sum prints them.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "commands.h"
#include "corvel/checksum.h"

namespace corvel {
namespace tools {
namespace {

const char kSumUsage[] =
    "usage: corvel sum [-a ALGORITHM] [FILE...]\n"
    "\n"
    "Prints the checksum or digest of each FILE in hexadecimal, two blanks and the file's\n"
    "name, as md5sum does; '-' or no FILE reads the standard input. ALGORITHM is one of\n"
    "  crc16    CRC-16, reflected, polynomial 0x8005, from 0 (4 digits)\n"
    "  crc32    CRC-32, most significant bit first, polynomial 0x04C11DB7, from 0xFFFFFFFF,\n"
    "           no final inversion: the MPEG-2 CRC (8 digits)\n"
    "  crc64    CRC-64, reflected, ISO 3309 polynomial, from 0 (16 digits)\n"
    "  qtcrc    the data loggers' CRC-32, polynomial 0x56070368, from 0 (8 digits)\n"
    "  qtsum    the data loggers' sum of bytes modulo 65536 (4 digits)\n"
    "  adler32  Adler-32 (8 digits)\n"
    "  md4, md5 (the default), sha1\n"
    "A file that cannot be read is reported on stderr and makes the exit status 1.\n";

// Every algorithm takes the file in pieces of any size. CRC-64 and the data loggers' CRC
// always start from 0, so their pieces are kept and taken whole at the end.
class Sum {
 public:
  explicit Sum(const std::string &algorithm) : algorithm_(algorithm) {
    zq_md5init(&md5_);
    sha_init(&sha_);
    zq_mdbegin(&md4_);
  }

  void Add(const unsigned char *p, size_t n) {
    if (algorithm_ == "crc16") {
      zq_crc16(&crc16_, p, n);
    } else if (algorithm_ == "crc32") {
      zq_crc32(&crc32_, p, n);
    } else if (algorithm_ == "qtsum") {
      uint16_t piece;
      qtchecksum(&piece, p, n);
      sum16_ = static_cast<uint16_t>(sum16_ + piece);
    } else if (algorithm_ == "adler32") {
      adler_ = zq_adler32(adler_, p, n);
    } else if (algorithm_ == "md5") {
      zq_md5update(&md5_, p, n);
    } else if (algorithm_ == "sha1") {
      sha_update(&sha_, p, n);
    } else {  // md4 by whole blocks, and the two that take everything at once
      kept_.insert(kept_.end(), p, p + n);
      if (algorithm_ != "md4") return;
      size_t whole = kept_.size() / 64 * 64;
      for (size_t i = 0; i < whole; i += 64) zq_mdupdate(&md4_, kept_.data() + i, 512);
      kept_.erase(kept_.begin(), kept_.begin() + static_cast<long>(whole));
    }
  }

  std::string Hex() {
    char text[48];
    if (algorithm_ == "crc16") {
      snprintf(text, sizeof text, "%04x", crc16_);
    } else if (algorithm_ == "crc32") {
      snprintf(text, sizeof text, "%08x", crc32_);
    } else if (algorithm_ == "crc64") {
      uint64_t crc;
      zq_crc64(&crc, kept_.data(), kept_.size());
      snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(crc));
    } else if (algorithm_ == "qtcrc") {
      uint32_t crc;
      qtcrc(&crc, kept_.data(), kept_.size());
      snprintf(text, sizeof text, "%08x", crc);
    } else if (algorithm_ == "qtsum") {
      snprintf(text, sizeof text, "%04x", sum16_);
    } else if (algorithm_ == "adler32") {
      snprintf(text, sizeof text, "%08x", adler_);
    } else if (algorithm_ == "md4") {
      zq_mdupdate(&md4_, kept_.data(), static_cast<unsigned>(kept_.size() * 8));
      unsigned char digest[16];
      for (int i = 0; i < 16; i++)
        digest[i] = static_cast<unsigned char>(md4_.buffer[i / 4] >> (8 * (i % 4)));
      return HexBytes(digest, 16);
    } else if (algorithm_ == "md5") {
      unsigned char digest[16];
      zq_md5final(digest, &md5_);
      return HexBytes(digest, 16);
    } else {
      unsigned char digest[20];
      sha_final(&sha_);
      sha_digest(&sha_, digest);
      return HexBytes(digest, 20);
    }
    return text;
  }

  static bool Known(const std::string &algorithm) {
    for (const char *name :
         {"crc16", "crc32", "crc64", "qtcrc", "qtsum", "adler32", "md4", "md5", "sha1"}) {
      if (algorithm == name) return true;
    }
    return false;
  }

 private:
  static std::string HexBytes(const unsigned char *p, size_t n) {
    std::string text;
    char two[3];
    for (size_t i = 0; i < n; i++) snprintf(two, sizeof two, "%02x", p[i]), text += two;
    return text;
  }

  std::string algorithm_;
  uint16_t crc16_ = 0;
  uint32_t crc32_ = 0xFFFFFFFF;
  uint16_t sum16_ = 0;
  uint32_t adler_ = 1;
  Zq_md5_ctx md5_;
  Zq_sha_ctx sha_;
  Zq_md4_ctx md4_;
  std::vector<unsigned char> kept_;
};

// Sums one file (or the standard input for "-"); false after reporting a failure.
bool SumFile(const std::string &algorithm, const char *path) {
  const bool standard_input = strcmp(path, "-") == 0;
  int fd = standard_input ? 0 : open(path, O_RDONLY);
  if (fd < 0) {
    fprintf(stderr, "corvel sum: %s: %s\n", path, strerror(errno));
    return false;
  }
  Sum sum(algorithm);
  std::vector<unsigned char> buffer(1 << 16);
  ssize_t n;
  while ((n = read(fd, buffer.data(), buffer.size())) != 0) {
    if (n < 0) {
      if (errno == EINTR) continue;
      fprintf(stderr, "corvel sum: %s: %s\n", path, strerror(errno));
      if (!standard_input) close(fd);
      return false;
    }
    sum.Add(buffer.data(), static_cast<size_t>(n));
  }
  if (!standard_input) close(fd);
  printf("%s  %s\n", sum.Hex().c_str(), path);
  return true;
}

}  // namespace

int SumCommand(int argc, char **argv) {
  std::string algorithm = "md5";
  int i = 0;
  for (; i < argc; i++) {
    if (IsHelp(argv[i])) {
      fputs(kSumUsage, stdout);
      return 0;
    } else if (strcmp(argv[i], "-a") == 0 && i + 1 < argc) {
      algorithm = argv[++i];
    } else if (strcmp(argv[i], "--") == 0) {
      i++;
      break;
    } else {
      break;
    }
  }
  if (!Sum::Known(algorithm)) {
    fprintf(stderr, "corvel sum: unknown algorithm '%s'\n\n%s", algorithm.c_str(), kSumUsage);
    return kUsageError;
  }
  if (i == argc) return SumFile(algorithm, "-") ? 0 : 1;
  int status = 0;
  for (; i < argc; i++) {
    if (!SumFile(algorithm, argv[i])) status = 1;
  }
  return status;
}

}  // namespace tools
}  // namespace corvel

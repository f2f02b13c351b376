// corvel codec: samples into and out of the library's waveform formats, and what a coded file
// holds.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "commands.h"
#include "corvel/codec.h"
#include "corvel/elog.h"

namespace corvel {
namespace tools {
namespace {

const char kCodecUsage[] =
    "usage: corvel codec encode -f FORMAT [-b BLOCK] [--binary] [IN [OUT]]\n"
    "       corvel codec decode -f FORMAT [--binary] [IN [OUT]]\n"
    "       corvel codec stats -f FORMAT IN\n"
    "\n"
    "FORMAT is one of\n"
    "  gen     block-packed integers (-b BLOCK samples per block, 1 to 255, default 25)\n"
    "  canada  the Canadian compression: a multiple of 20 samples, or one more (the last then\n"
    "          only closes the final difference and is decoded as the sample that follows)\n"
    "  cm6     the GSE2.0 CM6 text with its CHK2 line\n"
    "  ucsd    the UCSD compression (samples within 24 bits)\n"
    "\n"
    "Samples are text, one integer per line (any white space separates them), or with\n"
    "--binary little-endian 32-bit integers. IN and OUT default to the standard input and\n"
    "output ('-' names them too). stats decodes IN and prints the sample count, the minimum,\n"
    "the maximum, the coded size and the compression ratio (4 bytes a sample over the coded\n"
    "size). A failure is reported on stderr and makes the exit status 1.\n";

enum class Format { kGen, kCanada, kCm6, kUcsd };

bool ParseFormat(const char *name, Format *format) {
  static const struct {
    const char *name;
    Format format;
  } kFormats[] = {{"gen", Format::kGen},
                  {"canada", Format::kCanada},
                  {"cm6", Format::kCm6},
                  {"ucsd", Format::kUcsd}};
  for (const auto &f : kFormats) {
    if (strcmp(name, f.name) == 0) {
      *format = f.format;
      return true;
    }
  }
  return false;
}

bool ReadAll(const char *path, std::string *bytes) {
  const bool standard = strcmp(path, "-") == 0;
  FILE *file = standard ? stdin : fopen(path, "rb");
  if (file == nullptr) {
    fprintf(stderr, "corvel codec: %s: %s\n", path, strerror(errno));
    return false;
  }
  char chunk[1 << 16];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, file)) > 0) bytes->append(chunk, n);
  const bool ok = !ferror(file);
  if (!ok) fprintf(stderr, "corvel codec: %s: %s\n", path, strerror(errno));
  if (!standard) fclose(file);
  return ok;
}

bool WriteAll(const char *path, const void *data, size_t n) {
  const bool standard = strcmp(path, "-") == 0;
  FILE *file = standard ? stdout : fopen(path, "wb");
  bool ok = file != nullptr && fwrite(data, 1, n, file) == n;
  if (file != nullptr) ok = (standard ? fflush(file) : fclose(file)) == 0 && ok;
  if (!ok) fprintf(stderr, "corvel codec: %s: %s\n", path, strerror(errno));
  return ok;
}

// Samples as text, one integer per line; the line of the first bad one is reported.
bool ParseText(const std::string &text, const char *path, std::vector<int> *samples) {
  const char *p = text.c_str();
  int line = 1;
  while (true) {
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n') line += *p++ == '\n';
    if (*p == '\0') {
      if (p == text.c_str() + text.size()) return true;
      fprintf(stderr, "corvel codec: %s: line %d: a NUL byte\n", path, line);
      return false;
    }
    char *end;
    errno = 0;
    long value = strtol(p, &end, 10);
    const bool separated =
        *end == '\0' || *end == ' ' || *end == '\t' || *end == '\r' || *end == '\n';
    if (end == p || !separated || errno == ERANGE || value < INT_MIN || value > INT_MAX) {
      const char *stop = strpbrk(p, " \t\r\n");
      std::string word(p, stop ? static_cast<size_t>(stop - p) : strlen(p));
      fprintf(stderr, "corvel codec: %s: line %d: not a 32-bit integer: '%s'\n", path, line,
              word.c_str());
      return false;
    }
    samples->push_back(static_cast<int>(value));
    p = end;
  }
}

bool ParseBinary(const std::string &bytes, const char *path, std::vector<int> *samples) {
  if (bytes.size() % 4 != 0) {
    fprintf(stderr, "corvel codec: %s: %zu bytes is not a whole number of 32-bit samples\n", path,
            bytes.size());
    return false;
  }
  samples->resize(bytes.size() / 4);
  for (size_t i = 0; i < samples->size(); i++) {
    const unsigned char *b = reinterpret_cast<const unsigned char *>(bytes.data()) + 4 * i;
    (*samples)[i] =
        static_cast<int>(static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
                         static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24);
  }
  return true;
}

std::string FormatSamples(const std::vector<int> &samples, bool binary) {
  std::string out;
  if (binary) {
    for (int v : samples) {
      const uint32_t u = static_cast<uint32_t>(v);
      const char b[4] = {static_cast<char>(u), static_cast<char>(u >> 8),
                         static_cast<char>(u >> 16), static_cast<char>(u >> 24)};
      out.append(b, 4);
    }
  } else {
    char line[16];
    for (int v : samples)
      out.append(line, static_cast<size_t>(snprintf(line, sizeof line, "%d\n", v)));
  }
  return out;
}

// The library's messages about a failed call go to stderr.
bool Failed(const char *what) {
  elog_flush(1, 0);
  fprintf(stderr, "corvel codec: %s failed\n", what);
  return false;
}

bool Encode(Format format, const std::vector<int> &samples, int block, std::string *coded) {
  const int n = static_cast<int>(samples.size());
  if (format == Format::kCm6) {
    char *text = nullptr;
    int length = 0, size = 0;
    cm6(samples.data(), n, &text, &length, &size);
    coded->assign(text, static_cast<size_t>(length));
    free(text);
    return true;
  }
  unsigned char *out = nullptr;
  int length = 0, size = 0, status;
  const char *what;
  if (format == Format::kGen) {
    status = gencompress(&out, &length, &size, samples.data(), n, block), what = "gencompress";
  } else if (format == Format::kCanada) {
    status = ccanada(samples.data(), n, &out, &length, &size), what = "ccanada";
  } else {
    status = n == 0 ? 0 : cucsd(samples.data(), n, &out, &length, &size), what = "cucsd";
  }
  if (status == 0) coded->assign(reinterpret_cast<char *>(out), static_cast<size_t>(length));
  free(out);
  return status == 0 || Failed(what);
}

// A UCSD buffer does not hold its sample count: it is the first sample and the counts of the
// runs, found by walking their headers as the decoder reads them.
int UcsdSampleCount(const unsigned char *p, size_t n) {
  if (n < 4) return 0;
  size_t at = 4;
  long count = 1;
  while (at + 2 <= n) {
    const int mode = p[at] >> 4, values = p[at + 1];
    static const int kBitsPerValue[] = {24, 4, 8, 12, 16, 24};
    const int bits = kBitsPerValue[mode >= 1 && mode <= 4 ? mode : 5];
    at += 2 + (static_cast<size_t>(values) * bits + 7) / 8;
    at += at % 2;
    count += values;
    if (count > INT_MAX / 2) break;
  }
  return static_cast<int>(count);
}

bool Decode(Format format, const std::string &coded, std::vector<int> *samples) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(coded.data());
  const int nbytes = static_cast<int>(coded.size());
  int *out = nullptr;
  int count = 0, size = 0, status;
  const char *what;
  if (format == Format::kGen) {
    status = genuncompress(&out, &count, &size, bytes, nbytes), what = "genuncompress";
  } else if (format == Format::kCanada) {
    status = ucanada(bytes, nbytes, &out, &count, &size), what = "ucanada";
    // The sample that follows the record is one of the series unless it is the marker the
    // encoder puts there when nothing follows.
    if (status == 0 && count > 0 && out[count] != INT_MIN) count++;
  } else if (format == Format::kCm6) {
    status = um6(coded.data(), nbytes, &out, &count, &size), what = "um6";
    status = status < 0 ? -1 : 0;
  } else {
    count = UcsdSampleCount(bytes, coded.size());
    out = static_cast<int *>(malloc(static_cast<size_t>(count > 0 ? count : 1) * sizeof(int)));
    const unsigned char *p = bytes;
    status = count == 0 ? 0 : uucsd(out, &p, nbytes, count), what = "uucsd";
  }
  if (status == 0) samples->assign(out, out + count);
  free(out);
  return status == 0 || Failed(what);
}

void PrintStats(const std::vector<int> &samples, size_t coded_bytes) {
  printf("samples %zu\n", samples.size());
  if (!samples.empty()) {
    int lo = samples[0], hi = samples[0];
    for (int v : samples) lo = v < lo ? v : lo, hi = v > hi ? v : hi;
    printf("minimum %d\nmaximum %d\n", lo, hi);
  }
  printf("bytes %zu\n", coded_bytes);
  if (coded_bytes > 0)
    printf("ratio %.3f\n", 4.0 * static_cast<double>(samples.size()) / coded_bytes);
}

}  // namespace

int CodecCommand(int argc, char **argv) {
  if (argc >= 1 && IsHelp(argv[0])) {
    fputs(kCodecUsage, stdout);
    return 0;
  }
  const char *action = argc >= 1 ? argv[0] : "";
  const bool encode = strcmp(action, "encode") == 0, decode = strcmp(action, "decode") == 0,
             stats = strcmp(action, "stats") == 0;
  Format format = Format::kGen;
  bool have_format = false, binary = false;
  int block = 25;
  std::vector<const char *> paths;
  bool usage = !encode && !decode && !stats;
  for (int i = 1; i < argc && !usage; i++) {
    if (IsHelp(argv[i])) {
      fputs(kCodecUsage, stdout);
      return 0;
    } else if (strcmp(argv[i], "-f") == 0 && i + 1 < argc) {
      have_format = ParseFormat(argv[++i], &format);
      usage = !have_format;
    } else if (strcmp(argv[i], "-b") == 0 && i + 1 < argc && encode) {
      char *end;
      long value = strtol(argv[++i], &end, 10);
      usage = *end != '\0' || value < 1 || value > 255;
      block = static_cast<int>(value);
    } else if (strcmp(argv[i], "--binary") == 0 && !stats) {
      binary = true;
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      usage = true;
    } else {
      paths.push_back(argv[i]);
    }
  }
  if (usage || !have_format || paths.size() > (stats ? 1u : 2u) || (stats && paths.empty())) {
    fputs(kCodecUsage, stderr);
    return kUsageError;
  }
  const char *in = paths.size() > 0 ? paths[0] : "-";
  const char *out = paths.size() > 1 ? paths[1] : "-";

  std::string input;
  if (!ReadAll(in, &input)) return 1;
  std::vector<int> samples;
  if (encode) {
    std::string coded;
    const bool ok = (binary ? ParseBinary(input, in, &samples) : ParseText(input, in, &samples)) &&
                    Encode(format, samples, block, &coded) &&
                    WriteAll(out, coded.data(), coded.size());
    return ok ? 0 : 1;
  }
  if (!Decode(format, input, &samples)) return 1;
  if (stats) {
    PrintStats(samples, input.size());
    return 0;
  }
  const std::string text = FormatSamples(samples, binary);
  return WriteAll(out, text.data(), text.size()) ? 0 : 1;
}

}  // namespace tools
}  // namespace corvel

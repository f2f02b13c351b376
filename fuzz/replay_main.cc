// Runs saved inputs through a fuzz target's entry point without the fuzzing engine, so that
// an ordinary build replays every corpus as a test: each argument is a file or a directory
// whose files are replayed in name order. Each input is handed over in a buffer of exactly its
// size, as the fuzzing engine does, so that reading past its end is caught by the sanitizers.
#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

bool ReadWhole(const std::string &path, std::vector<uint8_t> *bytes) {
  FILE *file = fopen(path.c_str(), "rb");
  if (file == nullptr) return false;
  uint8_t chunk[4096];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, file)) > 0)
    bytes->insert(bytes->end(), chunk, chunk + n);
  bool ok = !ferror(file);
  fclose(file);
  return ok;
}

bool Replay(const std::string &path) {
  std::vector<uint8_t> bytes;
  if (!ReadWhole(path, &bytes)) {
    fprintf(stderr, "can't read %s\n", path.c_str());
    return false;
  }
  fprintf(stderr, "replaying %s (%zu bytes)\n", path.c_str(), bytes.size());
  uint8_t *copy = static_cast<uint8_t *>(malloc(bytes.size() ? bytes.size() : 1));
  if (!bytes.empty()) memcpy(copy, bytes.data(), bytes.size());
  LLVMFuzzerTestOneInput(copy, bytes.size());
  free(copy);
  return true;
}

// The regular files of a directory, sorted; dot files (editor and engine leftovers) are skipped.
std::vector<std::string> DirectoryFiles(const std::string &directory) {
  std::vector<std::string> files;
  DIR *dir = opendir(directory.c_str());
  if (dir == nullptr) return files;
  while (struct dirent *entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    std::string path = directory + "/" + entry->d_name;
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) files.push_back(path);
  }
  closedir(dir);
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s corpus-directory-or-file...\n", argv[0]);
    return 2;
  }
  long replayed = 0;
  for (int i = 1; i < argc; i++) {
    struct stat status;
    if (stat(argv[i], &status) != 0) {
      fprintf(stderr, "can't find %s\n", argv[i]);
      return 1;
    }
    std::vector<std::string> files =
        S_ISDIR(status.st_mode) ? DirectoryFiles(argv[i]) : std::vector<std::string>{argv[i]};
    for (const std::string &file : files) {
      if (!Replay(file)) return 1;
      replayed++;
    }
  }
  // An empty corpus proves nothing; say so rather than pass.
  if (replayed == 0) {
    fprintf(stderr, "no inputs to replay\n");
    return 1;
  }
  fprintf(stderr, "replayed %ld inputs\n", replayed);
  return 0;
}

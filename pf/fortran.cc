// Parameter-file entry points for Fortran callers: every argument by reference, a tree as a
// reference to the tree pointer, results through the last argument before the lengths of the
// blank-padded texts.
#include <stdlib.h>

#include "corvel/pf.h"
#include "corvel/text.h"

namespace {

// The key of a call as a terminated string, freed when the call ends.
class Text {
 public:
  Text(const char *field, size_t length) : text_(newcs(field, length)) {}
  ~Text() { free(text_); }
  Text(const Text &) = delete;
  Text &operator=(const Text &) = delete;
  const char *get() const { return text_; }

 private:
  char *text_;
};

}  // namespace

void pffree_(Pf **pf) {
  pffree(*pf);
  *pf = nullptr;
}

void pfget_(Pf **pf, const char *key, Pf **value, int *type, size_t keylen) {
  Text k(key, keylen);
  void *result = nullptr;
  *type = pfget(*pf, k.get(), &result);
  *value = static_cast<Pf *>(result);
}

void pfget_double_(Pf **pf, const char *key, double *value, size_t keylen) {
  Text k(key, keylen);
  *value = pfget_double(*pf, k.get());
}

void pfget_int_(Pf **pf, const char *key, int *value, size_t keylen) {
  Text k(key, keylen);
  *value = static_cast<int>(pfget_int(*pf, k.get()));
}

void pfget_boolean_(Pf **pf, const char *key, int *value, size_t keylen) {
  Text k(key, keylen);
  *value = pfget_boolean(*pf, k.get());
}

void pfget_string_(Pf **pf, const char *key, char *value, size_t keylen, size_t valuelen) {
  Text k(key, keylen);
  const char *text = pfget_string(*pf, k.get());
  cs2fs(value, text != nullptr ? text : "", valuelen);
}

void pfget_tbl_(Pf **pf, const char *key, Tbl **value, size_t keylen) {
  Text k(key, keylen);
  *value = pfget_tbl(*pf, k.get());
}

void pfget_arr_(Pf **pf, const char *key, Arr **value, size_t keylen) {
  Text k(key, keylen);
  *value = pfget_arr(*pf, k.get());
}

void pfread_(const char *name, Pf **pf, int *result, size_t namelen) {
  Text n(name, namelen);
  *result = pfread(n.get(), pf);
}

void pfcompile_(const char *text, Pf **pf, int *result, size_t textlen) {
  Text t(text, textlen);
  *result = pfcompile(t.get(), pf);
}

void pfnew_(int *type, Pf **pf) { *pf = pfnew(*type); }

void pfput_(Pf **pf, const char *key, Pf **value, size_t keylen) {
  Text k(key, keylen);
  pfput(*pf, k.get(), *value, PFPF);
}

void pfput_double_(Pf **pf, const char *key, double *value, size_t keylen) {
  Text k(key, keylen);
  pfput_double(*pf, k.get(), *value);
}

void pfput_int_(Pf **pf, const char *key, int *value, size_t keylen) {
  Text k(key, keylen);
  pfput_int(*pf, k.get(), *value);
}

void pfput_boolean_(Pf **pf, const char *key, int *value, size_t keylen) {
  Text k(key, keylen);
  pfput_boolean(*pf, k.get(), *value);
}

void pfput_string_(Pf **pf, const char *key, const char *value, size_t keylen, size_t valuelen) {
  Text k(key, keylen);
  Text v(value, valuelen);
  pfput_string(*pf, k.get(), v.get());
}

void pfput_arr_(Pf **pf, const char *key, Arr **value, size_t keylen) {
  Text k(key, keylen);
  pfput_arr(*pf, k.get(), *value);
}

void pfput_tbl_(Pf **pf, const char *key, Tbl **value, size_t keylen) {
  Text k(key, keylen);
  pfput_tbl(*pf, k.get(), *value);
}

void pfwrite_(Pf **pf, const char *path, int *result, size_t pathlen) {
  Text p(path, pathlen);
  *result = pfwrite(p.get(), *pf);
}

// For compilers that append two underscores.
void pfget_string__(Pf **pf, const char *key, char *value, size_t keylen, size_t valuelen) {
  pfget_string_(pf, key, value, keylen, valuelen);
}
void pfget_int__(Pf **pf, const char *key, int *value, size_t keylen) {
  pfget_int_(pf, key, value, keylen);
}
void pfget_double__(Pf **pf, const char *key, double *value, size_t keylen) {
  pfget_double_(pf, key, value, keylen);
}
void pfget_boolean__(Pf **pf, const char *key, int *value, size_t keylen) {
  pfget_boolean_(pf, key, value, keylen);
}
void pfget_tbl__(Pf **pf, const char *key, Tbl **value, size_t keylen) {
  pfget_tbl_(pf, key, value, keylen);
}
void pfput__(Pf **pf, const char *key, Pf **value, size_t keylen) {
  pfput_(pf, key, value, keylen);
}
void pfput_double__(Pf **pf, const char *key, double *value, size_t keylen) {
  pfput_double_(pf, key, value, keylen);
}
void pfput_int__(Pf **pf, const char *key, int *value, size_t keylen) {
  pfput_int_(pf, key, value, keylen);
}
void pfput_boolean__(Pf **pf, const char *key, int *value, size_t keylen) {
  pfput_boolean_(pf, key, value, keylen);
}
void pfput_string__(Pf **pf, const char *key, const char *value, size_t keylen, size_t valuelen) {
  pfput_string_(pf, key, value, keylen, valuelen);
}

// Typed lookup: the getters that read a value at a key path and convert it, the die handler
// they call when a value is missing or of the wrong kind, and pfconfig, which installs the die
// handler and the prompt function of &ask.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "corvel/elog.h"
#include "corvel/pf.h"
#include "corvel/text.h"
#include "corvel/time.h"
#include "elog/oom.h"
#include "pf/config.h"
#include "pf/internal.h"
#include "text/strtod_c.h"

static constexpr char kSourceName[] = "pfget.c";

namespace corvel {
namespace pf {
namespace {

// The default die handler ends the process when a program lacks a value it needs. In a list a
// present entry of the wrong kind is let through, unlike in an array; the difference is
// deliberate.
void DefaultDieHandler(Pf *pf, const char *key, int wanted, int found, void *result) {
  if (pf == nullptr) return;
  const char *file = pf->filename != nullptr ? pf->filename : "";
  switch (pf->type) {
    case PFFILE:
    case PFSTRING:
    case PFARR:
    case PFFCT:
      if (key == nullptr) key = "";
      if (found == PFINVALID) {
        elog_die(0, "program needs value for '%s', not found in parameter file '%s'", key, file);
      }
      elog_die(0, "wrong parameter type for '%s' : expected %s but got %s in '%s'", key,
               TypeName(wanted), TypeName(found), file);
    case PFTBL:
      if (found == PFINVALID) {
        elog_die(0, "wrong parameter type for #%ld : expected %s but got %s in '%s'", KeyIndex(key),
                 TypeName(wanted), TypeName(found), file);
      }
      return;
    default:
      return;
  }
}

// Set by pfconfig, read by every getter and by &ask: whole pointers, loaded and stored at once.
Pf_die_fn g_die_handler = DefaultDieHandler;
Pf_ask_fn g_ask_function = nullptr;

void Die(Pf *pf, const char *key, int wanted, int found, void *result) {
  __atomic_load_n(&g_die_handler, __ATOMIC_ACQUIRE)(pf, key, wanted, found, result);
}

// The key as messages show it: a list's key is an index.
const char *KeyText(Pf *pf, const char *key, char (&buffer)[32]) {
  if (pf != nullptr && pf->type == PFTBL) {
    snprintf(buffer, sizeof buffer, "#%ld", KeyIndex(key));
    return buffer;
  }
  return key != nullptr ? key : "";
}

// The node a typed getter reads, or null when the path names nothing. An array asked for no
// key is itself the answer.
Pf *Lookup(Pf *pf, const char *key) {
  if (pf != nullptr && pf->type == PFARR && (key == nullptr || key[0] == '\0')) return pf;
  Pf *node;
  return pfresolve(pf, key, 0, &node) >= 0 ? node : nullptr;
}

enum class Missing { kSilent, kDie };

// Finds the string a getter converts and stores its expanded text (null for a string without
// any) in *text. False when there is none: the die handler has been called if the entry is of
// another kind, or is missing and the getter needs it, and may have stored a result.
bool FindString(Pf *pf, const char *key, Missing missing, void *result, const char **text) {
  Pf *node = Lookup(pf, key);
  if (node == nullptr) {
    if (missing == Missing::kDie) Die(pf, key, PFSTRING, PFINVALID, result);
    return false;
  }
  if (node->type != PFSTRING) {
    Die(pf, key, PFSTRING, node->type, result);
    return false;
  }
  *text = pfexpand(node);
  return true;
}

// The same for a list or an array.
Pf *FindContainer(Pf *pf, const char *key, int wanted, void *result) {
  Pf *node = Lookup(pf, key);
  if (node == nullptr) return nullptr;
  if (node->type != wanted) {
    Die(pf, key, wanted, node->type, result);
    return nullptr;
  }
  return node;
}

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// A conversion counts when it read something and left nothing but white space.
bool Converted(const char *text, const char *end) {
  if (end == text) return false;
  while (IsSpace(*end)) end++;
  return *end == '\0';
}

// Puts the expanded text of an array entry into strings when the entry is a string, or a
// function that yields one.
void CopyStringEntry(char *key, void *value, void *strings) {
  Pf *node = static_cast<Pf *>(value);
  if (node != nullptr && node->type == PFFCT) node = pfinterpret(node);
  if (node != nullptr && node->type == PFSTRING) {
    setarr(static_cast<Arr *>(strings), key, pfexpand(node));
  }
}

}  // namespace

Pf_ask_fn CurrentAskFunction() { return __atomic_load_n(&g_ask_function, __ATOMIC_ACQUIRE); }

}  // namespace pf
}  // namespace corvel

using namespace corvel::pf;

char *pfget_string(Pf *pf, const char *key) {
  char *result = nullptr;
  const char *text;
  if (!FindString(pf, key, Missing::kSilent, &result, &text)) return result;
  return const_cast<char *>(text);
}

namespace {

// A number read by convert from the string at key; text that does not convert whole is
// complained about ("Bad <what> value"), and what was read of it is the result.
template <typename Number, typename Convert>
Number GetNumber(Pf *pf, const char *key, const char *what, Convert convert) {
  Number result = 0;
  const char *text;
  if (!FindString(pf, key, Missing::kDie, &result, &text)) return result;
  if (text == nullptr) text = "";
  char *end;
  result = convert(text, &end);
  if (!Converted(text, end)) {
    char buffer[32];
    elog_log(0, "Bad %s value '%s' for %s", what, text, KeyText(pf, key, buffer));
  }
  return result;
}

}  // namespace

long pfget_int(Pf *pf, const char *key) {
  return GetNumber<long>(pf, key, "integer",
                         [](const char *text, char **end) { return strtol(text, end, 0); });
}

double pfget_double(Pf *pf, const char *key) {
  return GetNumber<double>(pf, key, "floating point", corvel::text::StrtodC);
}

int pfget_boolean(Pf *pf, const char *key) {
  int result = 0;
  const char *text;
  if (!FindString(pf, key, Missing::kSilent, &result, &text)) return result;
  if (text == nullptr) text = "";
  int value = yesno(text);
  if (value == 1) {
    char buffer[32];
    elog_log(0, "Bad boolean value '%s' for %s", text, KeyText(pf, key, buffer));
    return 0;
  }
  return value;
}

double pfget_time(Pf *pf, const char *key) {
  double result = 0;
  const char *text;
  if (!FindString(pf, key, Missing::kDie, &result, &text)) return result;
  if (text == nullptr) text = "";
  if (!is_epoch_string(text, &result)) {
    char buffer[32];
    elog_log(0, "Bad time value '%s' for %s", text, KeyText(pf, key, buffer));
  }
  return result;
}

double pfget_size(Pf *pf, const char *key) {
  double result = 0;
  const char *text;
  if (!FindString(pf, key, Missing::kDie, &result, &text)) return result;
  return sz2dbl(text != nullptr ? text : "");
}

Tbl *pfget_tbl(Pf *pf, const char *key) {
  Tbl *result = nullptr;
  Pf *list = FindContainer(pf, key, PFTBL, &result);
  if (list == nullptr) return result;
  long n = maxtbl(list->value.tbl);
  result = newtbl(n);
  for (long i = 0; i < n; i++) {
    void *entry;
    pfget(list, PF_INDEX(i), &entry);
    pushtbl(result, entry);
  }
  return result;
}

Arr *pfget_arr(Pf *pf, const char *key) {
  Arr *result = nullptr;
  Pf *array = FindContainer(pf, key, PFARR, &result);
  if (array == nullptr) return result;
  result = newarr(nullptr);
  if (result == nullptr)
    corvel::DieOutOfMemory(__func__, __LINE__, kSourceName, sizeof(Arr), "arr");
  applyarr(array->value.arr, CopyStringEntry, result);
  return result;
}

int pfconfig(const char *code, Pf_config_fn function) {
  if (code != nullptr && strcmp(code, "ask") == 0) {
    __atomic_store_n(&g_ask_function, reinterpret_cast<Pf_ask_fn>(function), __ATOMIC_RELEASE);
    return 0;
  }
  if (code != nullptr && strcmp(code, "die") == 0) {
    // No function puts the default back.
    Pf_die_fn handler =
        function != nullptr ? reinterpret_cast<Pf_die_fn>(function) : DefaultDieHandler;
    __atomic_store_n(&g_die_handler, handler, __ATOMIC_RELEASE);
    return 0;
  }
  elog_log(0, "pfconfig: unrecognized code '%s'", okstr(code));
  return -1;
}

// The JSON form of a parameter-file tree.
#include "pf_json.h"

#include <stdio.h>

namespace corvel {
namespace tools {
namespace {

constexpr char kIndent[] = "  ";
constexpr char kReplacement[] = "\\ufffd";  // U+FFFD, for a byte that is not UTF-8

// The length of the UTF-8 sequence that starts at p, or 0 when the bytes there are not one:
// overlong forms, surrogates and code points above U+10FFFF are not. The text ends in a NUL,
// which no continuation byte matches, so the look-ahead stops there.
size_t Utf8Length(const unsigned char *p) {
  unsigned char c = p[0];
  if (c < 0x80) return 1;
  size_t length;
  unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
  if (c >= 0xC2 && c <= 0xDF) {
    length = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    length = 3;
    if (c == 0xE0) low = 0xA0;   // shorter forms are overlong
    if (c == 0xED) high = 0x9F;  // U+D800..U+DFFF are surrogates
  } else if (c >= 0xF0 && c <= 0xF4) {
    length = 4;
    if (c == 0xF0) low = 0x90;
    if (c == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (p[1] < low || p[1] > high) return 0;
  for (size_t i = 2; i < length; i++) {
    if (p[i] < 0x80 || p[i] > 0xBF) return 0;
  }
  return length;
}

void AppendString(const char *text, std::string *out) {
  out->push_back('"');
  const unsigned char *p = reinterpret_cast<const unsigned char *>(text != nullptr ? text : "");
  while (*p != '\0') {
    unsigned char c = *p;
    size_t length = Utf8Length(p);
    if (length == 0) {
      out->append(kReplacement);
      p++;
      continue;
    }
    switch (c) {
      case '"':
        out->append("\\\"");
        break;
      case '\\':
        out->append("\\\\");
        break;
      case '\n':
        out->append("\\n");
        break;
      case '\t':
        out->append("\\t");
        break;
      case '\r':
        out->append("\\r");
        break;
      default:
        if (c < 0x20) {
          char escape[8];
          snprintf(escape, sizeof escape, "\\u%04x", c);
          out->append(escape);
        } else {
          out->append(reinterpret_cast<const char *>(p), length);
        }
    }
    p += length;
  }
  out->push_back('"');
}

void Indent(int level, std::string *out) {
  for (int i = 0; i < level; i++) out->append(kIndent);
}

void AppendValue(Pf *node, int level, std::string *out);

void AppendObject(Pf *node, int level, std::string *out) {
  out->push_back('{');
  Tbl *keys = pfkeys(node);
  bool empty = true;
  for (long i = 0; i < maxtbl(keys); i++) {
    const char *key = static_cast<const char *>(gettbl(keys, i));
    Pf *value = pfinterpret(static_cast<Pf *>(getarr(node->value.arr, key)));
    if (value == nullptr) continue;
    out->append(empty ? "\n" : ",\n");
    Indent(level + 1, out);
    AppendString(key, out);
    out->append(": ");
    AppendValue(value, level + 1, out);
    empty = false;
  }
  freetbl(keys, nullptr);
  if (!empty) {
    out->push_back('\n');
    Indent(level, out);
  }
  out->push_back('}');
}

void AppendList(Pf *node, int level, std::string *out) {
  out->push_back('[');
  long n = maxtbl(node->value.tbl);
  for (long i = 0; i < n; i++) {
    out->append(i == 0 ? "\n" : ",\n");
    Indent(level + 1, out);
    AppendValue(pfinterpret(static_cast<Pf *>(gettbl(node->value.tbl, i))), level + 1, out);
  }
  if (n > 0) {
    out->push_back('\n');
    Indent(level, out);
  }
  out->push_back(']');
}

// node has been evaluated already: it is no function.
void AppendValue(Pf *node, int level, std::string *out) {
  switch (node != nullptr ? node->type : PFINVALID) {
    case PFFILE:
    case PFARR:
      AppendObject(node, level, out);
      break;
    case PFTBL:
      AppendList(node, level, out);
      break;
    case PFSTRING:
      AppendString(pfexpand(node), out);
      break;
    default:
      out->append("null");
  }
}

}  // namespace

std::string PfJson(Pf *node) {
  std::string out;
  AppendValue(pfinterpret(node), 0, &out);
  out.push_back('\n');
  return out;
}

}  // namespace tools
}  // namespace corvel

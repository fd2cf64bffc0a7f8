#include "host/vfs/AbsoluteIRI.hpp"

#include <unistd.h>

#include <climits>
#include <string>

#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"

namespace vfs {
namespace {

using foundation::core::except::Exception;
namespace tags = foundation::core::except::host;

bool isAlpha(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }
char16_t lower(char16_t c) { return (c >= u'A' && c <= u'Z') ? c + (u'a' - u'A') : c; }

// Length of a leading "scheme:" (without the colon), or 0. One-letter schemes are taken for
// drive letters and are not schemes.
size_t schemeLength(const std::u16string& text) {
  if (text.empty() || !isAlpha(text[0])) return 0;
  size_t i = 1;
  while (i < text.size() && (isAlpha(text[i]) || (text[i] >= u'0' && text[i] <= u'9') ||
                             text[i] == u'+' || text[i] == u'-' || text[i] == u'.')) {
    ++i;
  }
  return (i >= 2 && i < text.size() && text[i] == u':') ? i : 0;
}

int hexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Percent-decoding works on bytes: "%C3%A9" is one UTF-8 character.
std::u16string percentDecode(const std::u16string& text) {
  const std::string utf8 = foundation::unicode::ustring_to_utf8(text);
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size(); ++i) {
    if (utf8[i] == '%' && i + 2 < utf8.size() && hexValue(utf8[i + 1]) >= 0 &&
        hexValue(utf8[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hexValue(utf8[i + 1]) * 16 + hexValue(utf8[i + 2])));
      i += 2;
    } else {
      out.push_back(utf8[i]);
    }
  }
  return foundation::unicode::utf8_to_ustring(out);
}

std::u16string percentEncodePath(const std::u16string& path) {
  static const char* hex = "0123456789ABCDEF";
  std::u16string out;
  for (unsigned char c : foundation::unicode::ustring_to_utf8(path)) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
    if (plain) {
      out.push_back(c);
    } else {
      out.push_back(u'%');
      out.push_back(hex[c >> 4]);
      out.push_back(hex[c & 15]);
    }
  }
  return out;
}

std::u16string currentFolder() {
  char buffer[PATH_MAX];
  if (::getcwd(buffer, sizeof buffer) == nullptr) return u"/";
  return foundation::unicode::utf8_to_ustring(buffer);
}

std::u16string absolutePath(const std::u16string& path) {
  if (!path.empty() && path[0] == u'/') return path;
  std::u16string folder = currentFolder();
  if (folder.empty() || folder.back() != u'/') folder.push_back(u'/');
  return folder + path;
}

// "file:///p", "file://localhost/p" and "file:/p" all name the local path "/p".
std::u16string localPathOfFileIRI(const std::u16string& rest) {
  std::u16string path = rest;
  if (path.rfind(u"//", 0) == 0) {
    const size_t slash = path.find(u'/', 2);
    path = slash == std::u16string::npos ? u"/" : path.substr(slash);
  }
  return absolutePath(percentDecode(path));
}

}  // namespace

AbsoluteIRI::AbsoluteIRI(const std::u16string& nameOrIri) {
  if (nameOrIri.empty()) {
    throw Exception<tags::InvalidIRI>(foundation::core::except::kVfsComponent, "InvalidIRI",
                                      {nameOrIri});
  }
  const size_t length = schemeLength(nameOrIri);
  if (length == 0) {
    mScheme = u"file";
    mIsFile = true;
    mPath = absolutePath(nameOrIri);
    return;  // the IRI text is made when asked for: opening files rarely needs it
  }
  mScheme = nameOrIri.substr(0, length);
  mText = nameOrIri;
  mIsFile = schemeEquals(mScheme, u"file");
  const std::u16string rest = nameOrIri.substr(length + 1);
  mPath = mIsFile ? localPathOfFileIRI(rest) : rest;
}

std::u16string AbsoluteIRI::toString() const {
  return mText.empty() ? u"file://" + percentEncodePath(mPath) : mText;
}

std::u16string fromAbsoluteIRI(const AbsoluteIRI& iri) {
  return iri.isFile() ? iri.path() : iri.toString();
}

bool schemeEquals(const std::u16string& a, const std::u16string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

}  // namespace vfs

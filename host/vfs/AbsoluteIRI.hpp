#pragma once

#include <string>

namespace vfs {

// A file name as the host sees it: an IRI ("scheme:..."), or a local path, which stands for a
// "file" IRI. Relative local paths are made absolute against the current folder.
class AbsoluteIRI {
 public:
  // Throws the host's InvalidIRI error for an empty name.
  explicit AbsoluteIRI(const std::u16string& nameOrIri);

  // The scheme as written ("file" for a local path).
  const std::u16string& getScheme() const { return mScheme; }
  // The full IRI text: as written for other schemes; "file://" + the percent-encoded path for
  // local files.
  std::u16string toString() const;
  // True when the scheme is "file", in any letter case.
  bool isFile() const { return mIsFile; }
  // The text after "scheme:" for non-file IRIs; the decoded local path for file IRIs.
  const std::u16string& path() const { return mPath; }

 private:
  std::u16string mScheme;
  std::u16string mText;
  std::u16string mPath;
  bool mIsFile = false;
};

// The local path of a "file" IRI; for other schemes, the IRI's text.
std::u16string fromAbsoluteIRI(const AbsoluteIRI& iri);

// Case-insensitive (ASCII) comparison of two schemes.
bool schemeEquals(const std::u16string& a, const std::u16string& b);

}  // namespace vfs

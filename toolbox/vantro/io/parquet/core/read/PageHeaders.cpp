#include "toolbox/vantro/io/parquet/core/read/PageHeaders.hpp"

namespace vantro::io::parquet::core::read {
namespace {

// Thrift compact protocol type codes.
enum CompactType : uint8_t {
  kStop = 0,
  kBooleanTrue = 1,
  kBooleanFalse = 2,
  kByte = 3,
  kI16 = 4,
  kI32 = 5,
  kI64 = 6,
  kDouble = 7,
  kBinary = 8,
  kList = 9,
  kSet = 10,
  kMap = 11,
  kStruct = 12,
};

// Headers nest a few structs deep (statistics inside a data page header); anything deeper is not
// a page header.
constexpr int kMaxDepth = 16;

// PageHeader's field ids for the two sizes.
constexpr int kUncompressedPageSize = 2;
constexpr int kCompressedPageSize = 3;

// Reads just enough of the compact protocol to find two fields and skip every other one.
class CompactReader {
 public:
  CompactReader(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

  bool truncated() const { return mTruncated; }
  size_t position() const { return mPosition; }

  bool byte(uint8_t* out) {
    if (mPosition >= mSize) return fail(true);
    *out = mData[mPosition++];
    return true;
  }

  bool varint(uint64_t* out) {
    uint64_t value = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      uint8_t next = 0;
      if (!byte(&next)) return false;
      value |= static_cast<uint64_t>(next & 0x7f) << shift;
      if ((next & 0x80) == 0) {
        *out = value;
        return true;
      }
    }
    return fail(false);
  }

  bool zigzag(int64_t* out) {
    uint64_t raw = 0;
    if (!varint(&raw)) return false;
    *out = static_cast<int64_t>(raw >> 1) ^ -static_cast<int64_t>(raw & 1);
    return true;
  }

  bool skipBytes(uint64_t count) {
    if (count > mSize - mPosition) {
      mPosition = mSize;
      return fail(true);
    }
    mPosition += count;
    return true;
  }

  // A value of type inside a container, where booleans take a byte of their own.
  bool skipElement(uint8_t type, int depth) {
    if (type == kBooleanTrue || type == kBooleanFalse) return skipBytes(1);
    return skipValue(type, depth);
  }

  // A field's value; a boolean field's value is in its type code.
  bool skipValue(uint8_t type, int depth) {
    uint64_t ignored = 0;
    switch (type) {
      case kBooleanTrue:
      case kBooleanFalse:
        return true;
      case kByte:
        return skipBytes(1);
      case kI16:
      case kI32:
      case kI64:
        return varint(&ignored);
      case kDouble:
        return skipBytes(8);
      case kBinary:
        return varint(&ignored) && skipBytes(ignored);
      case kList:
      case kSet:
        return skipList(depth);
      case kMap:
        return skipMap(depth);
      case kStruct:
        return skipStruct(depth);
      default:
        return fail(false);
    }
  }

  bool skipStruct(int depth) {
    if (depth > kMaxDepth) return fail(false);
    int64_t fieldId = 0;
    uint8_t type = 0;
    while (field(&fieldId, &type)) {
      if (type == kStop) return true;
      if (!skipValue(type, depth + 1)) return false;
    }
    return false;
  }

  // The next field header of a struct; type kStop at its end.
  bool field(int64_t* fieldId, uint8_t* type) {
    uint8_t header = 0;
    if (!byte(&header)) return false;
    *type = header & 0x0f;
    if (*type == kStop) return true;
    const uint8_t delta = header >> 4;
    if (delta != 0) {
      *fieldId += delta;
      return true;
    }
    return zigzag(fieldId);
  }

 private:
  bool skipList(int depth) {
    if (depth > kMaxDepth) return fail(false);
    uint8_t header = 0;
    if (!byte(&header)) return false;
    uint64_t count = header >> 4;
    if (count == 15 && !varint(&count)) return false;
    const uint8_t type = header & 0x0f;
    for (uint64_t i = 0; i < count; ++i) {
      if (!skipElement(type, depth + 1)) return false;
    }
    return true;
  }

  bool skipMap(int depth) {
    if (depth > kMaxDepth) return fail(false);
    uint64_t count = 0;
    if (!varint(&count)) return false;
    if (count == 0) return true;
    uint8_t types = 0;
    if (!byte(&types)) return false;
    for (uint64_t i = 0; i < count; ++i) {
      if (!skipElement(types >> 4, depth + 1) || !skipElement(types & 0x0f, depth + 1)) {
        return false;
      }
    }
    return true;
  }

  bool fail(bool truncated) {
    mTruncated = mTruncated || truncated;
    return false;
  }

  const uint8_t* mData;
  size_t mSize;
  size_t mPosition = 0;
  bool mTruncated = false;
};

}  // namespace

std::optional<PageSizes> parsePageHeader(const uint8_t* data, size_t size, bool* truncated) {
  CompactReader reader(data, size);
  std::optional<int64_t> uncompressed;
  std::optional<int64_t> compressed;
  int64_t fieldId = 0;
  uint8_t type = 0;
  bool complete = false;
  while (reader.field(&fieldId, &type)) {
    if (type == kStop) {
      complete = true;
      break;
    }
    if (type == kI32 && (fieldId == kUncompressedPageSize || fieldId == kCompressedPageSize)) {
      int64_t value = 0;
      if (!reader.zigzag(&value)) break;
      (fieldId == kUncompressedPageSize ? uncompressed : compressed) = value;
    } else if (!reader.skipValue(type, 1)) {
      break;
    }
  }
  *truncated = reader.truncated();
  if (!complete || !uncompressed || !compressed) return std::nullopt;
  return PageSizes{static_cast<int64_t>(reader.position()), *uncompressed, *compressed};
}

}  // namespace vantro::io::parquet::core::read

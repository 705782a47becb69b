#include "elements/storage/MovHeader.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string_view>

#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int kMaxTopLevelBoxes = 1000;
constexpr size_t kBoxHeader = 8;

uint32_t ReadBig32(std::span<const uint8_t> bytes, size_t at) {
  return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 |
         uint32_t{bytes[at + 3]};
}

void WriteBig32(std::span<uint8_t> bytes, size_t at, uint32_t value) {
  for (size_t i = 0; i < 4; ++i)
    bytes[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

std::string_view TextAt(std::span<const uint8_t> bytes, size_t at) {
  return {reinterpret_cast<const char*>(bytes.data()) + at, 4};
}

// The kinds of boxes that describe video samples, and where the boxes inside them begin.
struct KnownBox {
  std::string_view parent;
  std::string_view type;
  std::optional<size_t> childrenAt;
};
constexpr KnownBox kKnownBoxes[] = {
    {"moov", "mvhd", {}}, {"moov", "trak", 0},  {"trak", "tkhd", {}}, {"trak", "mdia", 0},
    {"mdia", "mdhd", {}}, {"mdia", "hdlr", {}}, {"mdia", "minf", 0},  {"minf", "vmhd", {}},
    {"minf", "stbl", 0},  {"stbl", "stsd", 8},  {"stbl", "stts", {}}, {"stbl", "stsc", {}},
    {"stbl", "stsz", {}}, {"stbl", "stco", {}}, {"stbl", "co64", {}}, {"entry", "fiel", {}},
    {"entry", "esds", {}}};
constexpr size_t kEntryChildrenAt = 78;  // behind a video sample description

// The tables: where their entry count stands and how long an entry is.
struct Table {
  std::string_view type;
  size_t countAt;
  size_t entrySize;
};
constexpr Table kTables[] = {
    {"stts", 4, 8}, {"stsc", 4, 12}, {"stsz", 8, 4}, {"stco", 4, 4}, {"co64", 4, 8}};

class HeaderReducer {
 public:
  // Turns every box below `parent` that is not known into a free one.
  void Reduce(std::string_view parent, std::span<uint8_t> boxes) {
    while (boxes.size() >= kBoxHeader) {
      const size_t size = ReadBig32(boxes, 0);
      if (size < kBoxHeader || size > boxes.size()) {
        Free(boxes);
        return;
      }
      ReduceBox(parent, boxes.first(size));
      boxes = boxes.subspan(size);
    }
  }

 private:
  // One free box in place of all that the bytes hold.
  static void Free(std::span<uint8_t> box) {
    WriteBig32(box, 0, static_cast<uint32_t>(box.size()));
    std::copy_n("free", 4, box.begin() + 4);
  }

  void ReduceBox(std::string_view parent, std::span<uint8_t> box) {
    const std::string_view type = TextAt(box, 4);
    const std::span<uint8_t> content = box.subspan(kBoxHeader);
    if (parent == "stsd") {  // an entry: its type is the codec's
      if (content.size() > kEntryChildrenAt)
        Reduce("entry", content.subspan(kEntryChildrenAt));
      return;
    }
    const auto* const known = std::find_if(
        std::begin(kKnownBoxes), std::end(kKnownBoxes),
        [&](const KnownBox& box_) { return box_.parent == parent && box_.type == type; });
    if (known == std::end(kKnownBoxes) || (type == "trak" && !IsVideo(content))) {
      Free(box);
      return;
    }
    CheckTable(type, content);
    if (known->childrenAt && content.size() > *known->childrenAt)
      Reduce(known->type, content.subspan(*known->childrenAt));
  }

  static std::span<const uint8_t> FindBox(std::span<const uint8_t> boxes, std::string_view type) {
    while (boxes.size() >= kBoxHeader) {
      const size_t size = ReadBig32(boxes, 0);
      if (size < kBoxHeader || size > boxes.size())
        break;
      if (TextAt(boxes, 4) == type)
        return boxes.subspan(kBoxHeader, size - kBoxHeader);
      boxes = boxes.subspan(size);
    }
    return {};
  }

  static bool IsVideo(std::span<const uint8_t> trak) {
    const auto handler = FindBox(FindBox(trak, "mdia"), "hdlr");
    return handler.size() >= 12 && TextAt(handler, 8) == "vide";
  }

  void CheckTable(std::string_view type, std::span<const uint8_t> content) {
    const auto* const table = std::find_if(std::begin(kTables), std::end(kTables),
                                           [&](const Table& t) { return t.type == type; });
    if (table == std::end(kTables))
      return;
    const size_t entriesAt = table->countAt + 4;
    const size_t count = content.size() < entriesAt ? 0 : ReadBig32(content, table->countAt);
    const bool sizesAreEqual = type == "stsz" && count != 0 && ReadBig32(content, 4) != 0;
    if (type == "stsz" && (samples_ += static_cast<int64_t>(count)) > kMaxIndexEntries) {
      throw QELRuntimeError(QEL_TEXT("the file announces " << samples_ << " samples, at most "
                                                           << kMaxIndexEntries << " are read"));
    }
    if (content.size() < entriesAt ||
        (!sizesAreEqual && count > (content.size() - entriesAt) / table->entrySize)) {
      throw QELRuntimeError(QEL_TEXT("the sample table \"" << type << "\" is damaged: " << count
                                                           << " entries do not fit into its "
                                                           << content.size() << " bytes"));
    }
  }

  int64_t samples_ = 0;
};

// Where a box lies in the file, its content without the header.
struct BoxPlace {
  int64_t content;
  int64_t end;
};

BoxPlace FindTopLevelBox(ReadAheadCache& file, std::string_view wanted) {
  int64_t offset = 0;
  for (int i = 0; i < kMaxTopLevelBoxes && file.Size() - offset >= int64_t{kBoxHeader}; ++i) {
    std::array<uint8_t, 16> header{};
    file.ReadExactly(offset, std::span(header).first(kBoxHeader));
    uint64_t size = ReadBig32(header, 0);
    int64_t headerSize = kBoxHeader;
    if (size == 1) {  // the size stands behind the type, in 64 bits
      file.ReadExactly(offset + headerSize, std::span(header).subspan(kBoxHeader));
      size = uint64_t{ReadBig32(header, 8)} << 32 | ReadBig32(header, 12);
      headerSize = 16;
    }
    const auto rest = static_cast<uint64_t>(file.Size() - offset);
    if (size == 0)  // to the end of the file
      size = rest;
    const bool isWanted = TextAt(header, 4) == wanted;
    if (size < static_cast<uint64_t>(headerSize) || (isWanted && size > rest)) {
      throw QELRuntimeError(QEL_TEXT("the box at byte "
                                     << offset << " is damaged or truncated: it says " << size
                                     << " bytes, the file has " << rest << " from there on"));
    }
    if (isWanted)
      return {offset + headerSize, offset + static_cast<int64_t>(size)};
    if (size >= rest)
      break;
    offset += static_cast<int64_t>(size);
  }
  throw QELRuntimeError(QEL_TEXT("the file has no header (\"" << wanted
                                                              << "\"): it is truncated, or was "
                                                                 "never finished"));
}

}  // namespace

std::vector<uint8_t> ExtractMovHeader(ReadAheadCache& file) {
  const BoxPlace moov = FindTopLevelBox(file, "moov");
  const auto moovBytes = static_cast<uint64_t>(moov.end - moov.content);
  if (moovBytes > kMaxIndexBytes / 2) {
    throw QELRuntimeError(QEL_TEXT("the header takes " << moovBytes << " bytes, at most "
                                                       << kMaxIndexBytes / 2 << " are read"));
  }
  file.Fetch(moov.content, moov.end);
  constexpr std::string_view kFileType(
      "\0\0\0\x14"
      "ftypqt  \0\0\2\0qt  ",
      20);
  std::vector<uint8_t> header(kFileType.begin(), kFileType.end());
  const size_t moovAt = header.size();
  header.resize(moovAt + kBoxHeader + moovBytes);
  const auto box = std::span(header).subspan(moovAt);
  WriteBig32(box, 0, static_cast<uint32_t>(box.size()));
  std::copy_n("moov", 4, box.begin() + 4);
  file.ReadExactly(moov.content, box.subspan(kBoxHeader));
  HeaderReducer().Reduce("moov", box.subspan(kBoxHeader));
  return header;
}

}  // namespace qel

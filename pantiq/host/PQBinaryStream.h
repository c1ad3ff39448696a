// The binary form of published properties, for files and for copies between processes.
//
//   "PQBS", version (u16), reserved (u16, 0), then tagged values; numbers are little-endian.
//
// Tags, one byte each:
//    0 end        1 false       2 true        3 i8         4 i16       5 i32       6 i64      7 f32     8 f64
//    9 text: u32 length, bytes               10 word (an enumeration's, by name): u32 length, bytes
//   11 set: texts or integers, end           12 bytes: u32 length, bytes
//   13 list: values, end                     14 properties: (text name, value)..., end
//   15 collection: properties..., end        16 link: u32 length, the save name of the pin at the other end
//
// An object is one value of tag 14. Counts are checked against what is left of the input, nesting is at most 64, so
// that no input costs more memory than its length warrants. Values that equal their default are not written.
#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQFault.h"
#include "pantiq/host/PQPath.h"
#include "pantiq/host/PQPersistent.h"

namespace pantiq {

enum class PQTag : std::uint8_t {
  End,
  False,
  True,
  Int8,
  Int16,
  Int32,
  Int64,
  Float32,
  Float64,
  Text,
  Word,
  Set,
  Bytes,
  List,
  Properties,
  Collection,
  Link,
};

inline constexpr std::uint16_t kPQBinaryVersion = 1;
inline constexpr int kPQMostNesting = 64;
// Items that one stream can make, in all its collections.
inline constexpr int kPQMostStreamItems = 65536;

class PQ_EXPORT PQBinaryWriter {
 public:
  // Begins with magic and version.
  PQBinaryWriter();

  void Tag(PQTag tag) { bytes_.push_back(static_cast<std::uint8_t>(tag)); }
  void Integer(std::int64_t value);  // in the shortest form
  void Float(double value, bool single_precision);
  void Text(PQTag tag, std::string_view text);
  void Bytes(std::span<const std::uint8_t> bytes);
  void Value(const PQValue& value);  // any value, for lists
  // Lists of the host's streams: Tag(PQTag::List), values, Tag(PQTag::End).

  // One value of tag Properties: all that is stored of an object.
  void Object(const TPersistent& object);

  const PQBytes& Result() const { return bytes_; }

 private:
  void Properties(TPersistent& object, const PQProperty* outer);
  void Property(TPersistent& object, const PQProperty& property);
  PQBytes bytes_;
};

// A connection that was read; the owner of the components makes it when all of them exist. As in PQTextLink, a pin that
// its list does not have (yet) has a null `pin.object`.
struct PQBinaryLink {
  PQPathEnd pin;
  std::string component;  // the name that ReadObject was given
  std::string path;       // of the pin, from the component
  std::string target;     // "Name.OutputPin"
  std::size_t offset = 0;
};

// Reads what PQBinaryWriter wrote, and answers hostile input with faults. After the first fault in the stream's form
// (as opposed to a value that a property does not take) nothing more is read and every call answers false.
class PQ_EXPORT PQBinaryReader {
 public:
  // Reads magic and version.
  PQBinaryReader(std::span<const std::uint8_t> bytes, std::vector<PQFault>& faults);

  bool Ok() const { return ok_; }
  bool AtEnd() const { return pos_ == bytes_.size(); }
  std::size_t Offset() const { return pos_; }

  // Takes the next tag if it is this one. Fails (without a fault) if it is another.
  bool Take(PQTag tag);
  bool ReadText(std::string& text);  // of tag Text
  bool ReadValue(PQValue& value);    // of any simple tag, and lists
  bool Skip();                       // one value of any tag

  // Sets the object's properties from a value of tag Properties. `name` is the component's name for messages.
  bool ReadObject(TPersistent& object, std::string_view name, std::vector<PQBinaryLink>& links);

  // Records that the stream's form is wrong here; answers false.
  bool Malformed(const std::string& what, const std::string& expected);

 private:
  struct Place {  // where properties go, for messages
    std::string component, prefix;
  };
  bool ReadTag(PQTag& tag);
  bool ReadRaw(std::size_t count, std::uint64_t& value);
  bool ReadCounted(std::string_view& bytes);
  bool ReadValueOf(PQTag tag, PQValue& value, int depth);
  bool SkipValue(PQTag tag, int depth);
  bool ReadProperties(TPersistent& object, const PQProperty* held_by, const Place& place,
                      std::vector<PQBinaryLink>& links, int depth);
  bool ReadProperty(TPersistent& object, const PQProperty& property, const Place& place, const std::string& path,
                    std::vector<PQBinaryLink>& links, int depth);
  bool ReadSet(const PQProperty& property, PQValue& value, std::string& unknown);
  void BadProperty(const Place& place, const std::string& path, std::size_t offset, const std::string& what,
                   const PQProperty* property);

  std::span<const std::uint8_t> bytes_;
  std::size_t pos_ = 0;
  std::vector<PQFault>& faults_;
  bool ok_ = true;
  int items_ = 0;
};

// One object as a stream of its own.
PQ_EXPORT PQBytes PQWriteBinary(const TPersistent& object);
PQ_EXPORT bool PQReadBinary(std::span<const std::uint8_t> bytes, TPersistent& object, std::vector<PQBinaryLink>& links,
                            std::vector<PQFault>& faults);

}  // namespace pantiq

// A register map as a file describes it: blocks, registers with their addresses, fields, what an
// access does, and what a register is after a reset. Plain values, made by Import.h.
//
//   const Maps::Map map = Maps::readMap("chip.svd");
//   for (const Maps::Register& r : map.registers) std::cout << map.nameOf(r) << "\n";  //
//   UART0.CTRL
//
// Arrays are expanded: each element is a register of its own. What all elements have in common is
// one Layout, which they share.
#pragma once

#include <Zint/Api.h>
#include <Zint/Exception.h>
#include <Zint/Types.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Maps {

enum class Access : U8 { readWrite, readOnly, writeOnly, writeOnce, readWriteOnce };
// What a read does to what is read.
enum class ReadAction : U8 { none, clear, set, modify, modifyExternal };
// What a write does to what is written; `modify` is the plain one: the value written is held.
enum class WriteEffect : U8 {
  modify,
  oneToClear,
  oneToSet,
  oneToToggle,
  zeroToClear,
  zeroToSet,
  zeroToToggle,
  clear,  // any write clears
  set,    // any write sets
  user    // described nowhere but in the text
};

struct Value {
  std::string name;
  U64 value = 0;
};

struct Field {
  std::string name;
  U32 low = 0;   // the lowest bit
  U32 bits = 1;  // 1 to 64
  std::optional<Access> access;
  ReadAction readAction = ReadAction::none;
  WriteEffect writeEffect = WriteEffect::modify;
  bool isVolatile = false;
  bool isReserved = false;
  // The values that are read mean something else than those that are written.
  bool hasTwoMeanings = false;
  std::string text;
  std::vector<Value> values;

  // The bits of the register; those beyond 63 are left out.
  U64 mask() const { return low > 63 ? 0 : (bits > 63 ? ~U64{0} : (U64{1} << bits) - 1) << low; }
};

struct Layout {
  U32 width = 32;  // bits
  std::optional<Access> access;
  ReadAction readAction = ReadAction::none;
  WriteEffect writeEffect = WriteEffect::modify;
  bool isVolatile = false;
  bool isAlternate = false;  // another view of a register that is described elsewhere
  std::optional<U64> resetValue;
  U64 resetMask = ~U64{0};  // the bits of resetValue that are known
  std::string text;
  std::vector<Field> fields;  // in the order of the file

  U32 bytes() const { return (width + 7) / 8; }
  // All bits of the width.
  U64 bits() const { return width > 63 ? ~U64{0} : (U64{1} << width) - 1; }
};

constexpr U32 notInArray = ~U32{0};

struct Register {
  std::string name;   // within its block: "CTRL", "CHANNEL[2].CTRL"
  std::string array;  // of an element of an array: the name without its index; else empty
  U32 index = notInArray;
  U32 block = 0;    // in Map::blocks
  U64 address = 0;  // in bytes
  std::shared_ptr<const Layout> layout;
  U32 line = 0;  // in the file

  U64 end() const { return address + layout->bytes(); }
};

struct Block {
  std::string name;
  std::string text;
  U64 address = 0;
  bool isAlternate = false;  // another view of the addresses of another block
  U32 line = 0;
  // Addresses that the file calls reserved: [first, second).
  std::vector<std::pair<U64, U64>> reserved;
};

// What is wrong in a file but can be lived with.
struct Note {
  U32 line = 0;
  std::string text;
};

struct UMBRA_API Map {
  std::string file;
  std::string format;  // "CMSIS-SVD" or "IP-XACT"
  std::string name;
  std::vector<Block> blocks;
  std::vector<Register> registers;  // in the order of the file
  std::vector<Note> notes;

  // "BLOCK.REGISTER"
  std::string nameOf(const Register& r) const { return blocks[r.block].name + "." + r.name; }
};

// Why a file cannot be taken. The message is "FILE:LINE: text", without the line where it is 0.
class UMBRA_API Error : public Zint::RangeException {
 public:
  Error(const std::string& file, U32 line, const std::string& text);
  ~Error() override;
  U32 line() const { return line_; }

 private:
  U32 line_;
};

// Words as the formats have them: "read-write", "oneToClear", ...
UMBRA_API const char* textOf(Access access);
UMBRA_API const char* textOf(ReadAction action);
UMBRA_API const char* textOf(WriteEffect effect);
// How a register or field behaves, in short: "RW", "RO", "RW1C", "RC", "WO", "-" where nothing is
// known. Of a register with fields that differ: "mixed".
UMBRA_API std::string tokenOf(const Field& field, const Layout& layout);
UMBRA_API std::string tokenOf(const Layout& layout);
// "0x1f"
UMBRA_API std::string hexText(U64 value);

}  // namespace Maps

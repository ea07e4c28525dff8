// How CMSIS-SVD is read. Not installed.
#pragma once

#include <maps/Builder.h>

#include <unordered_map>

namespace Maps {

// What elements within inherit.
struct SvdDefaults {
  U32 size = 32;
  std::optional<Access> access;
  std::optional<U64> resetValue;
  U64 resetMask = ~U64{0};
};

// An element and what it is derived from, the nearest first: the first that says something counts.
using SvdChain = std::vector<Xml::Node>;

class SvdReader {
 public:
  using Node = Xml::Node;

  explicit SvdReader(const Xml& xml) : xml_(xml), builder_(xml, "CMSIS-SVD") {}
  Map read();

 private:
  void readPeripheral(Node node, const SvdDefaults& outer);
  void readBlock(const SvdChain& chain, const std::string& name, U64 address,
                 const SvdDefaults& defaults);
  void readGroup(Node registers, const std::string& prefix, U64 address, const SvdDefaults& outer,
                 U32 depth);
  void readCluster(Node node, const std::string& prefix, U64 address, const SvdDefaults& outer,
                   U32 depth);
  void readRegister(Node node, const std::string& prefix, U64 address, const SvdDefaults& outer);
  void readFields(Node fields, Layout& layout);
  void readField(Node node, Layout& layout);
  void readPlace(const SvdChain& chain, Field& field) const;
  void readValues(const SvdChain& chain, Field& field);

  SvdChain chainOf(Node node);
  Node basis(Node node, const std::string& path);
  Node named(Node container, const std::string& name);
  Node foundByPath(const std::string& path);
  static Node first(const SvdChain& chain, std::string_view name);
  std::string textOf(const SvdChain& chain, std::string_view name);
  std::string nameOf(const SvdChain& chain, const char* what);
  U64 offsetOf(const SvdChain& chain, std::string_view name, const std::string& whose) const;
  SvdDefaults defaultsOf(const SvdChain& chain, SvdDefaults outer);
  std::optional<Access> accessOf(Node node);
  void readEffects(const SvdChain& chain, ReadAction& read, WriteEffect& write);
  Dim dimOf(const SvdChain& chain, const std::string& name);
  std::vector<std::string> indexNames(Node node, U32 count, const std::string& name);

  const Xml& xml_;
  Builder builder_;
  // Per container: its elements by name.
  std::unordered_map<const void*, std::unordered_map<std::string, Node>> byName_;
};

}  // namespace Maps

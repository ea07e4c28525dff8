// One living object of every type of the library, each reached by the name of its type: what the
// tests of reflection share.
#pragma once

#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/Descriptions.h>
#include <Hardware/GenericChipHam.h>
#include <Zint/GenericIf.h>
#include <Zint/ObjectText.h>

#include <cctype>
#include <map>
#include <string>
#include <utility>

#include "support/ShadowTest.h"

namespace Support {

class ReflectionTest : public ShadowTest {
 protected:
  using GenericIf_ = Zint::GenericIf_;

  ReflectionTest() {
    cm->doClear();
    shadow->chipMemoryIs(cm);
    shadow->chipMemoryIs(other);
    shadow->stateIs(HardwareShadow::configured());
    reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, 4, 0.5);
    directory->chipMemoryIs("table", ChipAddress(0x5000), 4, 4, 4, ham);
    trace.full.clear();
  }

  // The last part of the type's name, "ChipMemory".
  GenericIf_ named(const std::string& type) {
    if (type == "ChipAddress") return GenericIf_::ofValue(&address, Hardware::chipAddressType);
    if (type == "ChipMemoryArrayIndex") {
      return GenericIf_::ofValue(&index, Hardware::chipMemoryArrayIndexType);
    }
    return GenericIf_(object(type));
  }
  Zint::Ptr<Zint::PtrInterface> object(const std::string& type) {
    if (type == "ChipHam") return bareHam;
    if (type == "GenericChipHam") return ham;
    if (type == "ChipMemory") return cm;
    if (type == "ChipReadRequest") return request;
    if (type == "ChipReader") return reader;
    if (type == "ChipMemoryChunk") return shadow->chipMemoryChunkArray(0);
    if (type == "HardwareShadow") return shadow;
    if (type == "ChipMemoryBogon") return directory;
    ADD_FAILURE() << "no object of type " << type;
    return nullptr;
  }
  // `$name` in a text stands for an object that this test holds.
  std::string resolved(std::string text) {
    const std::map<std::string, const Zint::PtrInterface*> objects = {
        {"$activity", loop.activity.ptr()},
        {"$clock", loop.clock.ptr()},
        {"$cm", cm.ptr()},
        {"$otherActivity", otherLoop.activity.ptr()},
        {"$otherClock", otherLoop.clock.ptr()},
        {"$other", other.ptr()},
        {"$otherRequest", otherRequest.ptr()},
        {"$request", request.ptr()},
        {"$buffer", buffer.ptr()},
        {"$ham", ham.ptr()},
        {"$chip", chip.ptr()},
        {"$chunk", chunk.ptr()}};
    for (std::size_t at; (at = text.find('$')) != std::string::npos;) {
      std::size_t end = at + 1;
      while (end < text.size() && std::isalpha(static_cast<unsigned char>(text[end])) != 0) ++end;
      const auto found = objects.find(text.substr(at, end - at));
      if (found == objects.end()) {
        ADD_FAILURE() << text;
        return text;
      }
      text.replace(at, end - at, Zint::objectText(found->second).bytes());
    }
    return text;
  }

  ChipAddress address{0x200001f00};
  Hardware::ChipMemoryArrayIndex index = 7;
  const Hardware::ChipHam::Ptr bareHam = Zint::makePtr<RecordingHam>("bare");
  const ChipMemory::Ptr cm = audited("mac", 0x1000, 8);
  const ChipMemory::Ptr other = shadowed("other", 0x2000, 8);
  const ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  const ChipReadRequest::Ptr otherRequest = Hardware::chipReadRequestFactory("otherRequest");
  ManualLoop otherLoop;
  const Hal::Buf::Ptr buffer = Zint::makePtr<Hal::Buf>(32u);
  Hardware::ChipReader::Ptr reader;
  const Hardware::ChipMemoryBogon::Ptr directory = Hardware::chipMemoryBogonFactory("directory");
  const Hardware::ChipMemoryChunk::Ptr chunk = Zint::makePtr<Hardware::ChipMemoryChunk>(9u);
};

// The types of the library that have objects or values, by the last part of their names.
inline std::vector<std::pair<std::string, const Zint::Type*>> livingTypes() {
  std::vector<std::pair<std::string, const Zint::Type*>> types;
  for (const Zint::Type* type : Zint::TypeRegistry::types()) {
    const std::string name = type->name;
    if (!name.starts_with("Hardware::") || std::string(type->kind) == "enumeration") continue;
    types.emplace_back(name.substr(name.rfind(':') + 1), type);
  }
  return types;
}

// A type's members, those of its bases first.
inline std::vector<const Zint::Member*> allMembers(const Zint::Type& type) {
  std::vector<const Zint::Member*> members;
  if (type.base != nullptr) members = allMembers(*type.base);
  for (const Zint::Member& member : type.members) members.push_back(&member);
  return members;
}

}  // namespace Support

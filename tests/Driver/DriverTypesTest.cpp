// The driver library's types: registered when it is loaded, and listed in its own file.
#include <Driver/AlarmRule.h>
#include <Driver/Descriptions.h>
#include <Zint/Trace.h>
#include <support/TypeSection.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace {

std::vector<std::string> registeredDriverTypes() {
  std::vector<std::string> names;
  for (const Zint::Type* type : Zint::TypeRegistry::types()) {
    if (std::string(type->name).starts_with("Driver::")) names.push_back(type->name);
  }
  return names;
}

std::vector<std::string> split(const std::string& bytes) {
  std::vector<std::string> names;
  for (std::size_t begin = 0; begin < bytes.size();) {
    const std::size_t end = bytes.find('\0', begin);
    names.push_back(bytes.substr(begin, end - begin));
    begin = end == std::string::npos ? end : end + 1;
  }
  return names;
}

class DriverTypes : public Support::TypeSectionTest {
 protected:
  DriverTypes() : TypeSectionTest("libUmbraDriver.so") {}
};

TEST_F(DriverTypes, areRegisteredWhenTheLibraryIsLoaded) {
  EXPECT_EQ(Zint::TypeRegistry::find("Driver::AlarmRule"), &Driver::alarmRuleType);
  EXPECT_NE(Zint::TypeRegistry::findFactory("alarmRuleFactory"), nullptr);
  EXPECT_NE(Zint::TraceHandle::find("Driver"), nullptr);
}

TEST_F(DriverTypes, sectionNamesThemInTheOrderOfTheRegistry) {
  std::vector<std::string> names = split(found[0].bytes);
  // A program that is linked statically has the names of both libraries.
  if (path == "/proc/self/exe") {
    std::erase_if(names, [](const std::string& name) { return !name.starts_with("Driver::"); });
  }
  EXPECT_EQ(names, registeredDriverTypes());
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

TEST_F(DriverTypes, namesOfMembersAreUnique) {
  for (const std::string& name : registeredDriverTypes()) {
    std::set<std::string> members;
    for (const Zint::Type* type = Zint::TypeRegistry::find(name); type != nullptr;
         type = type->base) {
      for (const Zint::Member& member : type->members) {
        EXPECT_TRUE(members.insert(member.name).second) << name << " " << member.name;
      }
    }
  }
}

}  // namespace

// Files and formats.
#include <maps/Builder.h>
#include <maps/Import.h>

#include <Zint/Sizes.h>
#include <sys/stat.h>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace Maps {

Map parseMap(std::string_view text, const std::string& name) {
  const Xml xml(text, name);
  const std::string_view root = Xml::nameOf(xml.root());
  if (root == "device") return readSvd(xml);
  if (root != "component") {
    xml.fail(xml.root(), "neither CMSIS-SVD (device) nor IP-XACT (component): the root is '" +
                             std::string(root.substr(0, 40)) + "'");
  }
  return readIpXact(xml);
}

Map readMap(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) throw Error(path, 0, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) throw Error(path, 0, "no plain file");
  if (static_cast<U64>(status.st_size) > Limits::fileBytes) {
    throw Error(path, 0, "the file has more than 64 MiB");
  }
  std::ifstream in(path, std::ios::binary);
  std::string text(Zint::sizeOf(status.st_size), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!in) throw Error(path, 0, "cannot be read");
  return parseMap(text, path);
}

}  // namespace Maps

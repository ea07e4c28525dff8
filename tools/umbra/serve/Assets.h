// The files of the page, which are part of the program.
#pragma once

#include <span>
#include <string_view>

namespace Serve {

struct Asset {
  std::string_view path;  // "/main.js"
  std::string_view type;  // "text/javascript; charset=utf-8"
  std::string_view bytes;
  std::string_view tag;  // changes with the bytes
};

std::span<const Asset> assets();

}  // namespace Serve

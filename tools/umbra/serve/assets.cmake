# cmake -DOUTPUT=<file.cpp> -DFILES=<file,file,...> -P assets.cmake: a source that holds the files.
# The assembler reads them, so that they cost no time to compile.
string(REPLACE "," ";" files "${FILES}")
set(declarations "")
set(rows "")
set(index 0)
foreach(file IN LISTS files)
  get_filename_component(name "${file}" NAME)
  get_filename_component(extension "${file}" LAST_EXT)
  if(extension STREQUAL ".js")
    set(type "text/javascript; charset=utf-8")
  elseif(extension STREQUAL ".css")
    set(type "text/css; charset=utf-8")
  elseif(extension STREQUAL ".svg")
    set(type "image/svg+xml")
  else()
    set(type "text/html; charset=utf-8")
  endif()
  file(SHA256 "${file}" hash)
  string(SUBSTRING "${hash}" 0 16 tag)
  string(APPEND declarations
    "__asm__(\".section .rodata\\n.balign 16\\nasset${index}:\\n.incbin \\\"${file}\\\"\\nasset${index}End:\\n.previous\");\n"
    "extern const char asset${index}[] __asm__(\"asset${index}\");\n"
    "extern const char asset${index}End[] __asm__(\"asset${index}End\");\n")
  string(APPEND rows
    "      {\"/${name}\", \"${type}\", bytes(asset${index}, asset${index}End), \"\\\"${tag}\\\"\"},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE "${OUTPUT}" "// Made by assets.cmake.
#include \"tools/umbra/serve/Assets.h\"

${declarations}
namespace Serve {
namespace {

std::string_view bytes(const char* from, const char* to) {
  return {from, static_cast<std::size_t>(to - from)};
}

}  // namespace

std::span<const Asset> assets() {
  static const Asset all[] = {
${rows}  };
  return all;
}

}  // namespace Serve
")

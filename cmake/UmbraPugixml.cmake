# The target umbra-pugixml: pugixml in the width that is built, where there is one. For 32 bits on a
# machine of 64, `./dev setup maps` unpacks the i386 packages below UMBRA_I386_MAPS.
set(UMBRA_I386_MAPS ${PROJECT_SOURCE_DIR}/build/i386/maps CACHE PATH
    "Where the i386 packages of pugixml are unpacked")
mark_as_advanced(UMBRA_I386_MAPS)
if(UMBRA_TARGET_IS_I386)
  find_library(UMBRA_PUGIXML_LIBRARY pugixml NO_DEFAULT_PATH
    PATHS ${UMBRA_I386_MAPS}/usr/lib/i386-linux-gnu /usr/lib/i386-linux-gnu)
else()
  find_library(UMBRA_PUGIXML_LIBRARY pugixml)
endif()
find_path(UMBRA_PUGIXML_INCLUDE pugixml.hpp HINTS ${UMBRA_I386_MAPS}/usr/include)
mark_as_advanced(UMBRA_PUGIXML_LIBRARY UMBRA_PUGIXML_INCLUDE)
if(UMBRA_PUGIXML_LIBRARY AND UMBRA_PUGIXML_INCLUDE AND NOT TARGET umbra-pugixml)
  add_library(umbra-pugixml UNKNOWN IMPORTED)
  set_target_properties(umbra-pugixml PROPERTIES
    IMPORTED_LOCATION ${UMBRA_PUGIXML_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${UMBRA_PUGIXML_INCLUDE})
endif()

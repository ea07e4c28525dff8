# Installation: the libraries, their headers under include/umbra, the CMake package, and one .pc file
# for each library.
# A 32-bit and a 64-bit build may share a prefix when they differ in CMAKE_INSTALL_LIBDIR.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(Umbra PUBLIC
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/umbra>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/umbra/runtime>)

install(TARGETS Umbra EXPORT UmbraTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Components of the package: Umbra::Platform and Umbra::Driver are there where they were asked for.
install(TARGETS UmbraPlatform EXPORT UmbraPlatformTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS UmbraDriver EXPORT UmbraDriverTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS UmbraTestKit EXPORT UmbraTestKitTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

set(UMBRA_INSTALLED_FOLDERS runtime Hardware platform Driver testkit)
set(UMBRA_PC_NAMES umbra umbra-platform umbra-driver umbra-testkit)
if(TARGET UmbraTelemetry)
  install(TARGETS UmbraTelemetry EXPORT UmbraTelemetryTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  list(APPEND UMBRA_INSTALLED_FOLDERS telemetry)
  list(APPEND UMBRA_PC_NAMES umbra-telemetry)
endif()
if(TARGET UmbraMaps)
  install(TARGETS UmbraMaps EXPORT UmbraMapsTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  list(APPEND UMBRA_INSTALLED_FOLDERS maps)
  list(APPEND UMBRA_PC_NAMES umbra-maps)
endif()

foreach(folder IN LISTS UMBRA_INSTALLED_FOLDERS)
  if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${folder})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/umbra
            FILES_MATCHING PATTERN "*.h"
            # How the library works inside; no public header includes them.
            PATTERN "Entries.h" EXCLUDE
            PATTERN "OverrideCheck.h" EXCLUDE
            PATTERN "StoreAccess.h" EXCLUDE
            PATTERN "ByName.h" EXCLUDE
            PATTERN "Umbra.h" EXCLUDE
            PATTERN "AccessCost.h" EXCLUDE
            PATTERN "AlarmWindows.h" EXCLUDE
            PATTERN "Driver.h" EXCLUDE
            PATTERN "Patrol.h" EXCLUDE
            PATTERN "PatrolReplay.h" EXCLUDE
            PATTERN "PatrolRun.h" EXCLUDE
            PATTERN "PatrolWatches.h" EXCLUDE
            PATTERN "PolicyComparison.h" EXCLUDE
            PATTERN "RegionMarks.h" EXCLUDE
            PATTERN "RegionWrite.h" EXCLUDE
            PATTERN "ReplayRegion.h" EXCLUDE
            PATTERN "Telemetry.h" EXCLUDE
            PATTERN "LiveView.h" EXCLUDE
            PATTERN "ReadFile.h" EXCLUDE
            PATTERN "RowSource.h" EXCLUDE
            PATTERN "SharedFile.h" EXCLUDE
            PATTERN "Budget.h" EXCLUDE
            PATTERN "Publishing.h" EXCLUDE
            PATTERN "PublishingWatches.h" EXCLUDE
            PATTERN "Subject.h" EXCLUDE
            PATTERN "ControlClient.h" EXCLUDE
            PATTERN "ControlLine.h" EXCLUDE
            PATTERN "ControlListener.h" EXCLUDE
            PATTERN "ControlServer.h" EXCLUDE
            PATTERN "ControlSession.h" EXCLUDE
            PATTERN "ControlTask.h" EXCLUDE
            PATTERN "ControlText.h" EXCLUDE
            PATTERN "Builder.h" EXCLUDE
            PATTERN "Ascii.h" EXCLUDE
            PATTERN "Svd.h" EXCLUDE
            PATTERN "Xml.h" EXCLUDE
            PATTERN "Names.h" EXCLUDE
            PATTERN "NamesText.h" EXCLUDE
            PATTERN "NamesWalk.h" EXCLUDE
            PATTERN "NamesRules.h" EXCLUDE
            PATTERN "NamesRulesChecks.h" EXCLUDE
            PATTERN "SysfsFile.h" EXCLUDE
            PATTERN "GatheredWindows.h" EXCLUDE
            PATTERN "ExpectationState.h" EXCLUDE
            PATTERN "FaultState.h" EXCLUDE)
  endif()
endforeach()

# The version file also compares the pointer width, so a 64-bit program that finds the 32-bit
# package goes on searching.
set(UMBRA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Umbra)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/UmbraConfig.cmake.in ${PROJECT_BINARY_DIR}/UmbraConfig.cmake
  INSTALL_DESTINATION ${UMBRA_PACKAGE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/UmbraConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/UmbraConfig.cmake
              ${PROJECT_BINARY_DIR}/UmbraConfigVersion.cmake
        DESTINATION ${UMBRA_PACKAGE_DIR})
install(EXPORT UmbraTargets NAMESPACE Umbra:: DESTINATION ${UMBRA_PACKAGE_DIR})
install(EXPORT UmbraPlatformTargets NAMESPACE Umbra:: DESTINATION ${UMBRA_PACKAGE_DIR})
install(EXPORT UmbraDriverTargets NAMESPACE Umbra:: DESTINATION ${UMBRA_PACKAGE_DIR})
install(EXPORT UmbraTestKitTargets NAMESPACE Umbra:: DESTINATION ${UMBRA_PACKAGE_DIR})
if(TARGET UmbraTelemetry)
  install(EXPORT UmbraTelemetryTargets NAMESPACE Umbra:: DESTINATION ${UMBRA_PACKAGE_DIR})
endif()
if(TARGET UmbraMaps)
  install(EXPORT UmbraMapsTargets NAMESPACE Umbra:: DESTINATION ${UMBRA_PACKAGE_DIR})
endif()

# umbra.pc finds its own prefix, so the installed tree may be moved or installed elsewhere with
# `cmake --install --prefix`. Absolute folders are taken as they are.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(UMBRA_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(UMBRA_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  file(RELATIVE_PATH UMBRA_PC_UP "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" UMBRA_PC_UP "${UMBRA_PC_UP}")
  set(UMBRA_PC_PREFIX "\${pcfiledir}/${UMBRA_PC_UP}")
  set(UMBRA_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(UMBRA_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(UMBRA_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
math(EXPR UMBRA_PC_BITS "${CMAKE_SIZEOF_VOID_P} * 8")
# The machine's flags of the 32-bit library, so that one line compiles and links a program.
set(UMBRA_PC_CFLAGS)
set(UMBRA_PC_LIBS)
if(UMBRA_TARGET_IS_I386)
  set(UMBRA_PC_CFLAGS -m32 ${UMBRA_MACHINE_FLAGS} "")
  set(UMBRA_PC_LIBS -m32)
endif()
list(APPEND UMBRA_PC_LIBS ${UMBRA_LINK_ALWAYS} "")
string(REPLACE ";" " " UMBRA_PC_CFLAGS "${UMBRA_PC_CFLAGS}")
string(REPLACE ";" " " UMBRA_PC_LIBS "${UMBRA_PC_LIBS}")
set(UMBRA_DRIVER_PC_LIBS ${UMBRA_DRIVER_LINK_ALWAYS} "")
string(REPLACE ";" " " UMBRA_DRIVER_PC_LIBS "${UMBRA_DRIVER_PC_LIBS}")
set(UMBRA_TELEMETRY_PC_LIBS ${UMBRA_TELEMETRY_LINK_ALWAYS} "")
string(REPLACE ";" " " UMBRA_TELEMETRY_PC_LIBS "${UMBRA_TELEMETRY_PC_LIBS}")
foreach(name IN LISTS UMBRA_PC_NAMES)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

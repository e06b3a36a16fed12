# What all targets of this project share.

include(CMakePackageConfigHelpers)

# Libraries, headers and packages of either Qt stand beside each other: those for Qt 6 have a suffix.
if(QT_MAJOR_VERSION EQUAL 5)
  set(KV_QT_LEAST 5.15)
  set(KV_SUFFIX "")
  set(KV_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR})
elseif(QT_MAJOR_VERSION EQUAL 6)
  set(KV_QT_LEAST 6.4)
  set(KV_SUFFIX Qt6)
  set(KV_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/KvProjectDbOperatorQt6)
else()
  message(FATAL_ERROR "QT_MAJOR_VERSION is 5 or 6, not \"${QT_MAJOR_VERSION}\"")
endif()
set(KV_PACKAGE KvProjectDbOperator${KV_SUFFIX})

macro(kv_find_qt)
  find_package(Qt${QT_MAJOR_VERSION} ${KV_QT_LEAST} REQUIRED COMPONENTS ${ARGN})
endmacro()

# No text becomes another encoding by accident: what KDE's and KDAB's libraries are built with. The public headers
# have to do with all of it.
set(KV_STRICT_QT QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY QT_NO_URL_CAST_FROM_STRING
  QT_NO_NARROWING_CONVERSIONS_IN_CONNECT QT_NO_FOREACH)

# Settings of every target: language level, hidden symbols, warnings.
function(kv_target_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    AUTOMOC ON
    CXX_STANDARD 17
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  # As a host may be built: Qt's lower-case keywords belong to others there.
  # Nothing that Qt 5.15 calls deprecated, as Qt 6 has none of it.
  target_compile_definitions(${target} PRIVATE QT_NO_KEYWORDS QT_STRICT_ITERATORS ${KV_STRICT_QT}
    QT_DISABLE_DEPRECATED_BEFORE=0x050f00)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
      $<$<BOOL:${KV_WARNINGS_AS_ERRORS}>:-Werror>)
  endif()
endfunction()

# A shared library that is installed with the package, under the name KvProjectDbOperator::<target>. Its public
# headers go to <include>/<folder>.
function(kv_add_library target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESCRIPTION;HEADER_FOLDER" "HEADERS;SOURCES")
  add_library(${target} SHARED ${arg_HEADERS} ${arg_SOURCES})
  add_library(KvProjectDbOperator::${target} ALIAS ${target})
  kv_target_defaults(${target})
  string(TOUPPER ${target} upper)
  target_compile_definitions(${target} PRIVATE ${upper}_LIBRARY)
  set_target_properties(${target} PROPERTIES
    KV_DESCRIPTION "${arg_DESCRIPTION}"
    KV_PUBLIC_HEADERS "${arg_HEADERS}"
    OUTPUT_NAME ${target}${KV_SUFFIX}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN")
  set_property(GLOBAL APPEND PROPERTY KV_LIBRARIES ${target})
  install(TARGETS ${target} EXPORT KvProjectDbOperatorTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${KV_INCLUDE_DIR})
  install(FILES ${arg_HEADERS} DESTINATION ${KV_INCLUDE_DIR}/${arg_HEADER_FOLDER} COMPONENT development)
endfunction()

# A program that is installed under <prefix>/<folder> and finds its libraries wherever the prefix lies.
function(kv_install_program target folder)
  file(RELATIVE_PATH libraries /prefix/${folder} /prefix/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
  install(TARGETS ${target} RUNTIME DESTINATION ${folder} COMPONENT apps)
endfunction()

# <target><suffix>.pc, whose paths hang on the place of the file itself; it requires what the target links in public.
function(kv_install_pkgconfig target)
  set(folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH to_prefix /prefix/${folder} /prefix)
  get_target_property(description ${target} KV_DESCRIPTION)
  get_target_property(required ${target} INTERFACE_LINK_LIBRARIES)
  list(FILTER required INCLUDE REGEX "^Qt[56]::")
  string(REPLACE "::" "" required "${required}")
  list(JOIN required " " required)
  configure_file(cmake/KvLibrary.pc.in ${PROJECT_BINARY_DIR}/${target}${KV_SUFFIX}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}${KV_SUFFIX}.pc DESTINATION ${folder} COMPONENT development)
endfunction()

# What other projects find this one with: find_package(KvProjectDbOperator 1 CONFIG), with the suffix for Qt 6, and
# pkg-config. The targets have the same names in both.
function(kv_install_package)
  set(destination ${CMAKE_INSTALL_LIBDIR}/cmake/${KV_PACKAGE})
  configure_package_config_file(cmake/KvProjectDbOperatorConfig.cmake.in
    ${PROJECT_BINARY_DIR}/${KV_PACKAGE}Config.cmake
    INSTALL_DESTINATION ${destination})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${KV_PACKAGE}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${KV_PACKAGE}Config.cmake
                ${PROJECT_BINARY_DIR}/${KV_PACKAGE}ConfigVersion.cmake
    DESTINATION ${destination} COMPONENT development)
  install(EXPORT KvProjectDbOperatorTargets NAMESPACE KvProjectDbOperator:: DESTINATION ${destination}
    COMPONENT development)
  get_property(libraries GLOBAL PROPERTY KV_LIBRARIES)
  foreach(library IN LISTS libraries)
    kv_install_pkgconfig(${library})
  endforeach()
endfunction()

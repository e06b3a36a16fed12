# What all targets of this project share.

include(CMakePackageConfigHelpers)

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
  target_compile_definitions(${target} PRIVATE QT_NO_KEYWORDS QT_STRICT_ITERATORS ${KV_STRICT_QT})
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
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN")
  set_property(GLOBAL APPEND PROPERTY KV_LIBRARIES ${target})
  install(TARGETS ${target} EXPORT KvProjectDbOperatorTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES ${arg_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${arg_HEADER_FOLDER} COMPONENT development)
endfunction()

# A program that is installed under <prefix>/<folder> and finds its libraries wherever the prefix lies.
function(kv_install_program target folder)
  file(RELATIVE_PATH libraries /prefix/${folder} /prefix/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
  install(TARGETS ${target} RUNTIME DESTINATION ${folder} COMPONENT apps)
endfunction()

# <target>.pc, whose paths hang on the place of the file itself; it requires what the target links in public.
function(kv_install_pkgconfig target)
  set(folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH to_prefix /prefix/${folder} /prefix)
  get_target_property(description ${target} KV_DESCRIPTION)
  get_target_property(required ${target} INTERFACE_LINK_LIBRARIES)
  list(FILTER required INCLUDE REGEX "^Qt5::")
  string(REPLACE "::" "" required "${required}")
  list(JOIN required " " required)
  configure_file(cmake/KvLibrary.pc.in ${PROJECT_BINARY_DIR}/${target}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}.pc DESTINATION ${folder} COMPONENT development)
endfunction()

# What other projects find this one with: find_package(KvProjectDbOperator 1 CONFIG), and pkg-config.
function(kv_install_package)
  set(destination ${CMAKE_INSTALL_LIBDIR}/cmake/KvProjectDbOperator)
  configure_package_config_file(cmake/KvProjectDbOperatorConfig.cmake.in
    ${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfig.cmake
    INSTALL_DESTINATION ${destination})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfig.cmake
                ${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfigVersion.cmake
    DESTINATION ${destination} COMPONENT development)
  install(EXPORT KvProjectDbOperatorTargets NAMESPACE KvProjectDbOperator:: DESTINATION ${destination}
    COMPONENT development)
  get_property(libraries GLOBAL PROPERTY KV_LIBRARIES)
  foreach(library IN LISTS libraries)
    kv_install_pkgconfig(${library})
  endforeach()
endfunction()

# What all targets of this project share.

include(CMakePackageConfigHelpers)

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
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
      $<$<BOOL:${KV_WARNINGS_AS_ERRORS}>:-Werror>)
  endif()
endfunction()

# A shared library that is installed with the package, under the name KvProjectDbOperator::<target>.
function(kv_add_library target)
  add_library(${target} SHARED ${ARGN})
  add_library(KvProjectDbOperator::${target} ALIAS ${target})
  kv_target_defaults(${target})
  string(TOUPPER ${target} upper)
  target_compile_definitions(${target} PRIVATE ${upper}_LIBRARY)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${target} EXPORT KvProjectDbOperatorTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()

# The CMake package: find_package(KvProjectDbOperator CONFIG).
function(kv_install_package)
  set(destination ${CMAKE_INSTALL_LIBDIR}/cmake/KvProjectDbOperator)
  configure_package_config_file(cmake/KvProjectDbOperatorConfig.cmake.in
    ${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfig.cmake
    INSTALL_DESTINATION ${destination})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfig.cmake
                ${PROJECT_BINARY_DIR}/KvProjectDbOperatorConfigVersion.cmake
    DESTINATION ${destination})
  install(EXPORT KvProjectDbOperatorTargets NAMESPACE KvProjectDbOperator:: DESTINATION ${destination})
endfunction()

# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
# What clients and helpers are built with: the libraries of every floor below the daemon, their headers, and the files by
# which CMake (find_package(hoist): hoist::client, hoist::helper) and pkg-config (hoist-client, hoist-helper) find them.
# Static libraries: a helper is verified by its signature, which covers what is linked into it and nothing else.

set(client_libraries connection protocols xpc dbus filesystem files volumes attrlist logging preferences platform values)
set(helper_libraries helper process)

set(targets ${client_libraries} ${helper_libraries})
list(TRANSFORM targets PREPEND hoist_)
set_target_properties(hoist_connection PROPERTIES EXPORT_NAME client)
set_target_properties(hoist_helper PROPERTIES EXPORT_NAME helper)
foreach(target ${targets})
  target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/hoist>)
  target_compile_features(${target} INTERFACE cxx_std_20)
  # What a helper neither uses nor loads does not delay its launch.
  target_link_options(${target} INTERFACE $<INSTALL_INTERFACE:-Wl,--as-needed$<COMMA>--gc-sections>)
endforeach()
install(TARGETS ${targets} EXPORT hoist DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hoist COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN daemon EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/generated/values/product.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hoist/values COMPONENT development)

include(CMakePackageConfigHelpers)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/hoist)
install(EXPORT hoist NAMESPACE hoist:: FILE hoist-targets.cmake DESTINATION ${package} COMPONENT development)
configure_package_config_file(hoist-config.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/hoist-config.cmake
  INSTALL_DESTINATION ${package})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/hoist-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hoist-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/hoist-config-version.cmake
  DESTINATION ${package} COMPONENT development)

# The libraries of one floor may name each other in any order.
function(pkg_config_libraries result)
  list(TRANSFORM ARGN PREPEND -lhoist_)
  list(JOIN ARGN " " libraries)
  set(${result} "-Wl,--start-group ${libraries} -Wl,--end-group" PARENT_SCOPE)
endfunction()
pkg_config_libraries(HOIST_CLIENT_LIBRARIES ${client_libraries})
pkg_config_libraries(HOIST_HELPER_LIBRARIES ${helper_libraries})
foreach(name client helper)
  configure_file(pkgconfig/hoist-${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/hoist-${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hoist-${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

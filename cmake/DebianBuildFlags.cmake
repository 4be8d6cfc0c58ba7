# Debian's build flags (dpkg-buildflags with every hardening feature:
# fortified functions, stack protector, full RELRO with immediate binding),
# as a Debian package build uses them. scripts/package-check turns them on.
option(WF_DEBIAN_BUILDFLAGS "Build with the flags of dpkg-buildflags (hardening=+all)" OFF)
if(WF_DEBIAN_BUILDFLAGS)
  find_program(WF_DPKG_BUILDFLAGS dpkg-buildflags REQUIRED)
  foreach(kind CPPFLAGS CXXFLAGS CFLAGS LDFLAGS)
    execute_process(
      COMMAND ${CMAKE_COMMAND} -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all
              ${WF_DPKG_BUILDFLAGS} --get ${kind}
      OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    set(WF_DEB_${kind} ${flags})
  endforeach()
  add_compile_options(${WF_DEB_CPPFLAGS})
  foreach(flag IN LISTS WF_DEB_CXXFLAGS)
    add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:${flag}>")
  endforeach()
  foreach(flag IN LISTS WF_DEB_CFLAGS)
    add_compile_options("$<$<COMPILE_LANGUAGE:C>:${flag}>")
  endforeach()
  add_link_options(${WF_DEB_LDFLAGS})
endif()

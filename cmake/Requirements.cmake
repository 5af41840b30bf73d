# What the build and the tests need from the system, each with the Debian package that provides it:
# anything missing stops configure with one line saying what to install, rather than a compiler or
# test error later. (scripts/install-dependencies installs them all.)

# Short enough for CMake to print on one line.
function(ipmi_event_log_missing what package)
    message(FATAL_ERROR "${what} not found: apt-get install ${package}")
endfunction()

# pkg_check_modules with the Debian package to name when the module is missing.
macro(ipmi_event_log_require_module prefix module package)
    pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${module})
    if(NOT ${prefix}_FOUND)
        ipmi_event_log_missing(${module} ${package})
    endif()
endmacro()

# Sets `variable` to the include directory of a header that only some Debian package installs.
function(ipmi_event_log_require_header variable header package)
    find_path(${variable} ${header})
    if(NOT ${variable})
        ipmi_event_log_missing("header ${header}" ${package})
    endif()
endfunction()

# Sets `variable` to a program's absolute path. /usr/sbin and /sbin are searched too: Debian puts
# some tools there (FreeIPMI's ipmi-sel, dpkg-shlibdeps' helpers), outside an ordinary user's PATH.
function(ipmi_event_log_require_program variable program package)
    find_program(${variable} ${program} PATHS /usr/sbin /sbin)
    if(NOT ${variable})
        ipmi_event_log_missing("program ${program}" ${package})
    endif()
endfunction()

# find_package in config or module mode, quietly, then the one line when it is missing.
macro(ipmi_event_log_require_package name package)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
        ipmi_event_log_missing("${name}" ${package})
    endif()
endmacro()

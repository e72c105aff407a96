# Flags that Android.bp grants to some sources only. A vendor module of the
# platform is built with -fno-exceptions and -fno-rtti by default; a module
# that needs either says so in its cppflags, and the sources it lists get it.
# The host builds mirror each grant here, one line per grant, beside the
# sources it covers:
#
#   zel_grant(-fexceptions ${CMAKE_CURRENT_LIST_DIR}/ZelQuery.cpp)
#
# The device preset builds everything else with the platform's defaults, and
# its test "device.android_bp_flags" fails when Android.bp and these grants
# (or the flags Android.bp gives a module) drift apart.

# zel_grant(<flag> <source>...): compiles the sources with <flag> after the
# defaults. Call it from the directory whose target compiles them.
function(zel_grant flag)
    set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS ${flag})
endfunction()

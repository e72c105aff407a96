# Event layer: its own connection to the service, acquire and release, notify
# and rule control, and the read-side queries.
target_sources(tarvo-zel-client PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/ZelConnection.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ZelEvent.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ZelNotify.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ZelQuery.cpp
)
# The power-mode query converts the service's text with std::stoi and lets
# std::bad_optional_access reach its caller: the one source built with
# exceptions, and the RTTI that matching them against the C++ runtime's types
# needs (Android.bp grants both to its module).
zel_grant(-fexceptions ${CMAKE_CURRENT_LIST_DIR}/ZelQuery.cpp)
zel_grant(-frtti ${CMAKE_CURRENT_LIST_DIR}/ZelQuery.cpp)

# Event layer: its own connection to the service, acquire and release, notify
# and rule control, and the read-side queries.
target_sources(tarvo-zel-client PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/ZelConnection.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ZelEvent.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ZelNotify.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ZelQuery.cpp
)

# Resource-control client (dolmHalclient), its connection to the service and
# the callback dispatch.
target_sources(tarvo-zel-client PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/CallbackClient.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CallbackRegistry.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Connection.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Diagnostics.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Listening.cpp
    ${CMAKE_CURRENT_LIST_DIR}/PathRequests.cpp
    ${CMAKE_CURRENT_LIST_DIR}/RequestBuilding.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ResourceControl.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SubsystemControl.cpp
    ${CMAKE_CURRENT_LIST_DIR}/Thermal.cpp
)

# Wrapper layer: action-name wrappers, the notify dispatcher and the resource
# list builders (the action and opcode tables are listed in client/CMakeLists.txt).
target_sources(tarvo-zel-client PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/ZelWrapper.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ResourceLists.cpp
)

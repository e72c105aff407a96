// Test main for suites that use binder: every test process gets a registry
// directory of its own, so that test processes running side by side (ctest
// -j) never see each other's services under the same instance name.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

int main(int argc, char** argv) {
    std::string dir = (std::filesystem::temp_directory_path() / "zel-test-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) return 2;
    setenv("BINDER_HOST_DIR", dir.c_str(), 1);

    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();

    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return result;
}

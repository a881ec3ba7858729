#include "tests/support/casesapart.h"
#include "tests/support/testfolder.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace KelTest {

TestFolder::TestFolder() : m_before(std::filesystem::current_path())
{
    std::string name = (std::filesystem::temp_directory_path() / "keltest-XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw std::runtime_error("no folder for the test");
    m_path = name;
    std::filesystem::current_path(m_path);
}

TestFolder::~TestFolder()
{
    std::filesystem::current_path(m_before);
    std::error_code ignored;
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(m_path, ignored);
}

} // namespace KelTest

int main(int argc, char** argv)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe"; // unless the command line says otherwise
    testing::InitGoogleTest(&argc, argv);
    // A death test starts the program anew with the arguments that it had, for that one case.
    const bool isDeathTest = !std::string(testing::GTEST_FLAG(internal_run_death_test)).empty();
    if (!isDeathTest && argc > 1 && std::string(argv[1]) == "--cases-apart")
        return KelTest::runCasesApart();
    return RUN_ALL_TESTS();
}

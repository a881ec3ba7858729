#pragma once

#include <gtest/gtest.h>

#include <filesystem>

namespace KelTest {

/// A fresh, empty folder that is the working directory while it lives; gone with everything in it afterwards.
class TestFolder
{
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    const std::filesystem::path m_before;
    std::filesystem::path m_path;
};

/// Base of the cases: each has a folder of its own.
class FolderTest : public testing::Test
{
protected:
    TestFolder folder;
};

} // namespace KelTest

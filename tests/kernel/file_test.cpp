#include "kernel/kelfile.h"

#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <csignal>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>

using Ombrin::CkelByteArray;
using Ombrin::CkelDevice;
using Ombrin::CkelFile;
using Ombrin::CkelObject;
using Ombrin::CkelString;

namespace fs = std::filesystem;

namespace {

constexpr unsigned int firstSeed = 20240607;

constexpr CkelDevice::OpenMode everyMode[] = {CkelDevice::ReadOnly, CkelDevice::WriteOnly, CkelDevice::Append};

void put(const std::string& name, const std::string& content)
{
    std::ofstream(name, std::ios::binary) << content;
}

std::string get(const std::string& name)
{
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string randomBytes(std::size_t size)
{
    std::mt19937 random(firstSeed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/// The number that the next file to be opened gets.
int nextDescriptor()
{
    const int descriptor = ::open(".", O_RDONLY | O_CLOEXEC);
    ::close(descriptor);
    return descriptor;
}

std::atomic<int>& signals()
{
    static std::atomic<int> count{0};
    return count;
}

/// Lets the process live when a call to the system would end it by `signal`; the call fails instead.
class IgnoredSignal
{
public:
    explicit IgnoredSignal(int signal) : m_signal(signal), m_before(std::signal(signal, SIG_IGN)) {}
    ~IgnoredSignal() { std::signal(m_signal, m_before); }
    IgnoredSignal(const IgnoredSignal&) = delete;
    IgnoredSignal& operator=(const IgnoredSignal&) = delete;

private:
    const int m_signal;
    void (*const m_before)(int);
};

class File : public KelTest::FolderTest
{};

} // namespace

// --- names ---

TEST_F(File, ExistsWhenThereIsAFileOrAFolder)
{
    put("file", "");
    fs::create_directory("folder");
    EXPECT_TRUE(CkelFile::exists("file"));
    EXPECT_TRUE(CkelFile::exists("folder"));
    EXPECT_TRUE(CkelFile::exists("folder/"));
    EXPECT_TRUE(CkelFile::exists("folder/../file"));
    EXPECT_FALSE(CkelFile::exists("other"));
    EXPECT_FALSE(CkelFile::exists("folder/file"));
    EXPECT_FALSE(CkelFile::exists("file/file"));
    EXPECT_FALSE(CkelFile::exists(""));
}

TEST_F(File, ExistsFollowsWhatHappensToTheFile)
{
    EXPECT_FALSE(CkelFile::exists("file"));
    put("file", "");
    EXPECT_TRUE(CkelFile::exists("file"));
    fs::remove("file");
    EXPECT_FALSE(CkelFile::exists("file"));
}

TEST_F(File, NameMayBeInAnyEncoding)
{
    const std::string name = "caf\xE9 \xFF\x01";
    CkelFile file(name);
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    EXPECT_TRUE(file.write(CkelByteArray("x", 1)));
    file.close();
    EXPECT_TRUE(CkelFile::exists(name));
    EXPECT_EQ(get(name), "x");
    EXPECT_EQ(file.fileName().toStdString(), name);
}

TEST_F(File, NulInsideANameIsNotItsEnd)
{
    put("file", "content");
    const std::string name("file\0x", 6);
    EXPECT_FALSE(CkelFile::exists(name));
    for (const auto mode : everyMode)
        EXPECT_FALSE(CkelFile(name).open(mode)) << mode;
    EXPECT_EQ(get("file"), "content");
}

TEST_F(File, KnowsItsName)
{
    EXPECT_EQ(CkelFile("some file").fileName().toStdString(), "some file");
    EXPECT_FALSE(CkelFile::exists("some file"));
}

// --- opening ---

TEST_F(File, OpenModeCodesAreFixed)
{
    EXPECT_EQ(CkelDevice::NotOpen, 0);
    EXPECT_EQ(CkelDevice::ReadOnly, 1);
    EXPECT_EQ(CkelDevice::WriteOnly, 2);
    EXPECT_EQ(CkelDevice::Append, 4);
}

TEST_F(File, IsClosedAtFirst)
{
    put("file", "content");
    const CkelFile file("file");
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(file.openMode(), CkelDevice::NotOpen);
}

TEST_F(File, ReportsTheModeItIsOpenIn)
{
    put("file", "content");
    for (const auto mode : everyMode) {
        CkelFile file("file");
        EXPECT_TRUE(file.open(mode));
        EXPECT_TRUE(file.isOpen());
        EXPECT_EQ(file.openMode(), mode);
        file.close();
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(file.openMode(), CkelDevice::NotOpen);
    }
}

TEST_F(File, MissingFileCannotBeOpenedForReadingAndIsNotMade)
{
    CkelFile file("file");
    EXPECT_FALSE(file.open(CkelDevice::ReadOnly));
    EXPECT_FALSE(file.isOpen());
    EXPECT_FALSE(CkelFile::exists("file"));
}

TEST_F(File, FileThatCouldNotBeOpenedMayBeOpenedLater)
{
    CkelFile file("file");
    ASSERT_FALSE(file.open(CkelDevice::ReadOnly));
    put("file", "content");
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    EXPECT_EQ(file.readAll().toStdString(), "content");
}

TEST_F(File, FileInAMissingFolderCannotBeOpened)
{
    for (const auto mode : everyMode) {
        CkelFile file("folder/file");
        EXPECT_FALSE(file.open(mode)) << mode;
        EXPECT_EQ(file.openMode(), CkelDevice::NotOpen);
    }
    EXPECT_FALSE(CkelFile::exists("folder"));
}

TEST_F(File, EmptyNameCannotBeOpened)
{
    for (const auto mode : everyMode)
        EXPECT_FALSE(CkelFile("").open(mode)) << mode;
}

TEST_F(File, FolderCannotBeOpened)
{
    fs::create_directory("folder");
    const int before = nextDescriptor();
    CkelFile file("folder");
    for (const auto mode : everyMode) {
        EXPECT_FALSE(file.open(mode)) << mode;
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(file.openMode(), CkelDevice::NotOpen);
    }
    EXPECT_EQ(nextDescriptor(), before);
}

TEST_F(File, UnknownModeIsRefused)
{
    put("file", "content");
    for (const int mode : {-1, 0, 3, 5, 6, 7, 8, 256 + 1}) {
        CkelFile file("file");
        EXPECT_FALSE(file.open(static_cast<CkelDevice::OpenMode>(mode))) << mode;
        EXPECT_FALSE(file.isOpen());
    }
    EXPECT_EQ(get("file"), "content");
}

TEST_F(File, OpenFileCannotBeOpenedAgain)
{
    put("file", "content");
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    for (const auto mode : everyMode)
        EXPECT_FALSE(file.open(mode)) << mode;
    EXPECT_EQ(file.openMode(), CkelDevice::ReadOnly);
    EXPECT_EQ(file.readAll().toStdString(), "content");
    EXPECT_EQ(get("file"), "content");
}

TEST_F(File, MayBeOpenedAgainAfterClose)
{
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    EXPECT_TRUE(file.write(CkelByteArray("one", 3)));
    file.close();
    ASSERT_TRUE(file.open(CkelDevice::Append));
    EXPECT_TRUE(file.write(CkelByteArray("two", 3)));
    file.close();
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    EXPECT_EQ(file.readAll().toStdString(), "onetwo");
}

TEST_F(File, ClosingAClosedFileIsHarmless)
{
    CkelFile file("file");
    file.close();
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    const int other = ::open(".", O_RDONLY | O_CLOEXEC);
    file.close();
    const int reused = ::open(".", O_RDONLY | O_CLOEXEC); // has the number that the file had
    file.close();
    EXPECT_NE(fcntl(reused, F_GETFD), -1) << "somebody else's descriptor was closed";
    ::close(other);
    ::close(reused);
}

TEST_F(File, DestructorClosesTheFile)
{
    const int before = nextDescriptor();
    for (const auto mode : {CkelDevice::WriteOnly, CkelDevice::Append, CkelDevice::ReadOnly}) {
        CkelFile file("file");
        ASSERT_TRUE(file.open(mode));
        EXPECT_NE(nextDescriptor(), before);
    }
    EXPECT_EQ(nextDescriptor(), before);
}

TEST_F(File, IsClosedInProgramsThatAreStarted)
{
    const int descriptor = nextDescriptor();
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    const int flags = fcntl(descriptor, F_GETFD);
    ASSERT_NE(flags, -1);
    EXPECT_NE(flags & FD_CLOEXEC, 0);
}

TEST_F(File, NewFileHasThePermissionsThatTheProcessGives)
{
    const mode_t old = umask(027);
    for (const auto mode : {CkelDevice::WriteOnly, CkelDevice::Append}) {
        const std::string name = "file" + std::to_string(mode);
        EXPECT_TRUE(CkelFile(name).open(mode));
        EXPECT_EQ(fs::status(name).permissions(), static_cast<fs::perms>(0640));
    }
    umask(old);
}

// --- what 32 bits do not hold ---

static_assert(sizeof(off_t) == 8 && sizeof(time_t) == 8, "files beyond 2 GiB, dates beyond 2038");

TEST_F(File, FileBeyond4GiBIsFoundAndOpened)
{
    put("file", "");
    ASSERT_EQ(truncate("file", off_t{5} << 30U), 0);
    EXPECT_TRUE(CkelFile::exists("file"));
    CkelFile file("file");
    EXPECT_TRUE(file.open(CkelDevice::ReadOnly));
}

TEST_F(File, AppendAddsBeyond4GiB)
{
    constexpr off_t size = off_t{5} << 30U;
    put("file", "");
    ASSERT_EQ(truncate("file", size), 0);
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::Append));
    EXPECT_TRUE(file.write(CkelByteArray("new", 3)));
    const int descriptor = ::open("file", O_RDONLY | O_CLOEXEC);
    std::array<char, 8> end{};
    EXPECT_EQ(pread(descriptor, end.data(), end.size(), size), 3);
    EXPECT_STREQ(end.data(), "new");
    ::close(descriptor);
}

TEST_F(File, WriteOnlyEmptiesAFileBeyond4GiB)
{
    put("file", "");
    ASSERT_EQ(truncate("file", off_t{5} << 30U), 0);
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    EXPECT_TRUE(file.write(CkelByteArray("new", 3)));
    EXPECT_EQ(get("file"), "new");
}

TEST_F(File, DateBeyond2038IsNoHindrance)
{
    put("file", "content");
    constexpr timespec farDate = {4102444800, 0}; // the year 2100
    constexpr timespec dates[] = {farDate, farDate};
    ASSERT_EQ(utimensat(AT_FDCWD, "file", dates, 0), 0);
    struct stat status = {};
    ASSERT_EQ(stat("file", &status), 0);
    ASSERT_EQ(status.st_mtim.tv_sec, farDate.tv_sec) << "the file system keeps no such dates";
    EXPECT_TRUE(CkelFile::exists("file"));
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    EXPECT_EQ(file.readAll().toStdString(), "content");
}

// --- reading ---

TEST_F(File, ReadAllGivesEveryByte)
{
    const std::string content = randomBytes(1000) + std::string("\0\r\n\x1A\xFF", 5);
    put("file", content);
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    EXPECT_EQ(file.readAll().toStdString(), content);
}

TEST_F(File, ReadAllOfAnEmptyFileIsEmpty)
{
    put("file", "");
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    EXPECT_TRUE(file.readAll().isEmpty());
    EXPECT_TRUE(file.isOpen());
}

TEST_F(File, ReadAllTakesFilesOfAnySize)
{
    const std::string content = randomBytes(1000000);
    for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 65535U, 65536U, 65537U, 131072U, 1000000U}) {
        put("file", content.substr(0, size));
        CkelFile file("file");
        ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
        EXPECT_TRUE(file.readAll().toStdString() == content.substr(0, size)) << size;
    }
}

TEST_F(File, ReadAllGoesOnWhereTheLastOneEnded)
{
    put("file", "one");
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    EXPECT_EQ(file.readAll().toStdString(), "one");
    EXPECT_TRUE(file.readAll().isEmpty());
    std::ofstream("file", std::ios::app) << "two";
    EXPECT_EQ(file.readAll().toStdString(), "two");
}

TEST_F(File, ReadAllStartsAgainAfterReopening)
{
    put("file", "one");
    CkelFile file("file");
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
        EXPECT_EQ(file.readAll().toStdString(), "one");
        file.close();
    }
}

TEST_F(File, ReadAllNeedsAFileOpenForReading)
{
    put("file", "content");
    CkelFile file("file");
    EXPECT_TRUE(file.readAll().isEmpty());
    ASSERT_TRUE(file.open(CkelDevice::Append));
    EXPECT_TRUE(file.readAll().isEmpty());
    file.close();
    EXPECT_TRUE(file.readAll().isEmpty());
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    EXPECT_TRUE(file.readAll().isEmpty());
}

TEST_F(File, ReadAllTakesWhatHasNoSize)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    const IgnoredSignal nobodyReads(SIGPIPE);
    const std::string content = randomBytes(300000);
    std::thread writer([&] { put("pipe", content); });
    CkelFile file("pipe");
    const bool opened = file.open(CkelDevice::ReadOnly);
    const std::string read = file.readAll().toStdString();
    file.close(); // the writer fails, rather than waits, if there is something left
    writer.join();
    EXPECT_TRUE(opened);
    EXPECT_TRUE(read == content) << read.size() << " bytes";
}

TEST_F(File, SignalsDoNotInterruptOpeningAndReading)
{
    struct sigaction action = {};
    action.sa_handler = [](int) { ++signals(); };       // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0); // stays: one of the signals may still be on its way
    ASSERT_EQ(mkfifo("pipe", 0600), 0);

    const int before = signals();
    std::thread writer([reader = pthread_self()] {
        const auto disturb = [&] {
            for (int i = 0; i < 10; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                pthread_kill(reader, SIGUSR1);
            }
        };
        disturb(); // the reader waits for this end of the pipe ...
        std::ofstream pipe("pipe", std::ios::binary);
        disturb(); // ... and now for data
        pipe << "one" << std::flush;
        disturb();
        pipe << "two";
    });
    CkelFile file("pipe");
    const bool opened = file.open(CkelDevice::ReadOnly);
    const int end = ::open("pipe", O_RDONLY | O_NONBLOCK | O_CLOEXEC); // the writer ends, whatever the file does
    const std::string read = file.readAll().toStdString();
    writer.join();
    ::close(end);
    EXPECT_TRUE(opened);
    EXPECT_EQ(read, "onetwo");
    EXPECT_GT(signals(), before);
}

// --- writing ---

TEST_F(File, WriteOnlyMakesAFile)
{
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    EXPECT_TRUE(CkelFile::exists("file"));
    const std::string content = randomBytes(100000);
    EXPECT_TRUE(file.write(CkelByteArray(content)));
    EXPECT_TRUE(get("file") == content); // nothing waits for close()
}

TEST_F(File, WriteOnlyEmptiesAFile)
{
    put("file", "content");
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    EXPECT_EQ(get("file"), "");
    EXPECT_TRUE(file.write(CkelByteArray("new", 3)));
    EXPECT_EQ(get("file"), "new");
}

TEST_F(File, AppendMakesAFile)
{
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::Append));
    EXPECT_TRUE(file.write(CkelByteArray("new", 3)));
    EXPECT_EQ(get("file"), "new");
}

TEST_F(File, AppendAddsToAFile)
{
    put("file", "old");
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::Append));
    EXPECT_EQ(get("file"), "old");
    EXPECT_TRUE(file.write(CkelByteArray("new", 3)));
    EXPECT_EQ(get("file"), "oldnew");
}

TEST_F(File, AppendWritesAfterWhatOthersAppended)
{
    CkelFile first("file");
    CkelFile second("file");
    ASSERT_TRUE(first.open(CkelDevice::Append));
    ASSERT_TRUE(second.open(CkelDevice::Append));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(first.write(CkelByteArray("a", 1)));
        EXPECT_TRUE(second.write(CkelByteArray("b", 1)));
    }
    EXPECT_EQ(get("file"), "ababab");
}

TEST_F(File, WritesFollowEachOther)
{
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));
    EXPECT_TRUE(file.write(CkelByteArray("a\0b", 3)));
    EXPECT_TRUE(file.write(CkelByteArray()));
    EXPECT_TRUE(file.write(CkelByteArray("c", 1)));
    EXPECT_EQ(get("file"), std::string("a\0bc", 4));
}

TEST_F(File, WriteNeedsAFileOpenForWriting)
{
    put("file", "content");
    CkelFile file("file");
    EXPECT_FALSE(file.write(CkelByteArray("x", 1)));
    EXPECT_FALSE(file.write(CkelByteArray()));
    ASSERT_TRUE(file.open(CkelDevice::ReadOnly));
    EXPECT_FALSE(file.write(CkelByteArray("x", 1)));
    EXPECT_FALSE(file.write(CkelByteArray()));
    file.close();
    EXPECT_FALSE(file.write(CkelByteArray("x", 1)));
    EXPECT_EQ(get("file"), "content");
}

TEST_F(File, WriteThatCannotBeFinishedFails)
{
    CkelFile file("file");
    ASSERT_TRUE(file.open(CkelDevice::WriteOnly));

    // The first call to the system writes the 10 bytes that fit.
    const IgnoredSignal tooLarge(SIGXFSZ);
    rlimit old = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    rlimit small = old;
    small.rlim_cur = 10;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool tooLong = file.write(CkelByteArray(std::string(25, 'x')));
    const bool full = file.write(CkelByteArray("x", 1));
    setrlimit(RLIMIT_FSIZE, &old);

    EXPECT_FALSE(tooLong);
    EXPECT_FALSE(full);
    EXPECT_EQ(get("file"), std::string(10, 'x'));
    EXPECT_TRUE(file.write(CkelByteArray("y", 1))) << "there is room again";
}

TEST_F(File, WriteIsTakenInPiecesAndFinished)
{
    // A pipe takes no more than its reader leaves room for.
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    const IgnoredSignal nobodyReads(SIGPIPE);
    const std::string content = randomBytes(300000);
    std::string read;
    std::thread reader([&] { read = get("pipe"); });
    CkelFile file("pipe");
    const bool opened = file.open(CkelDevice::WriteOnly);
    const bool written = file.write(CkelByteArray(content));
    file.close();
    reader.join();
    EXPECT_TRUE(opened);
    EXPECT_TRUE(written);
    EXPECT_TRUE(read == content) << read.size() << " bytes";
}

// --- as an object ---

TEST_F(File, IsADeviceAndAnObject)
{
    const CkelFile file("file");
    EXPECT_EQ(file.className(), "CkelFile");
    EXPECT_TRUE(file.inherits("CkelFile"));
    EXPECT_TRUE(file.inherits("CkelDevice"));
    EXPECT_TRUE(file.inherits("CkelObject"));
}

TEST_F(File, IsDeletedAndClosedByItsParent)
{
    const int before = nextDescriptor();
    auto parent = std::make_unique<CkelObject>();
    auto* const file = new CkelFile("file", parent.get());
    EXPECT_EQ(file->parent(), parent.get());
    ASSERT_TRUE(file->open(CkelDevice::WriteOnly));
    EXPECT_NE(nextDescriptor(), before);
    parent.reset();
    EXPECT_EQ(nextDescriptor(), before);
}

TEST_F(File, CanBeUsedAsADevice)
{
    const std::unique_ptr<CkelDevice> device = std::make_unique<CkelFile>("file");
    ASSERT_TRUE(device->open(CkelDevice::WriteOnly));
    EXPECT_TRUE(device->write(CkelByteArray("abc", 3)));
    device->close();
    ASSERT_TRUE(device->open(CkelDevice::ReadOnly));
    EXPECT_EQ(device->readAll().toStdString(), "abc");
}

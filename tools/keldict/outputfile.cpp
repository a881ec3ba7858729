#include "outputfile.h"

#include "failure.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace Keldict {

namespace fs = std::filesystem;

namespace {

/// The file itself where the name is a link to it, so that the link stays.
fs::path resolved(const fs::path& path)
{
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    return error ? path : target;
}

bool isThere(const fs::path& path)
{
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error));
}

/// Waits until the file or folder is on the disk.
bool sync(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool done = descriptor >= 0 && fsync(descriptor) == 0;
    if (descriptor >= 0)
        close(descriptor);
    return done;
}

fs::path folderOf(const fs::path& path)
{
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

} // namespace

OutputFile::OutputFile(const fs::path& path, bool replace) : m_path(resolved(path)), m_replace(replace)
{
    if (!replace && isThere(m_path))
        throw Failure(Unreadable, m_path.string() + " is there already; --force replaces it");
    refuseIfInUse();
    std::string name = (folderOf(m_path) / ".keldict-XXXXXX").string();
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0)
        fail(std::generic_category().message(errno));
    close(descriptor);
    m_temporary = name;
}

OutputFile::~OutputFile()
{
    if (!m_temporary.empty())
        unlink(m_temporary.c_str());
}

void OutputFile::fail(const std::string& what) const
{
    throw Failure(Unreadable, m_path.string() + ": " + what);
}

/// What waits beside a database would be taken for a part of the new one.
void OutputFile::refuseIfInUse() const
{
    std::error_code error;
    if (fs::is_directory(m_path, error))
        fail(std::generic_category().message(EISDIR));
    for (const char* suffix : {"-journal", "-wal"}) {
        if (isThere(m_path.string() + suffix))
            fail("is in use, or was left in the middle of a change: there is a file " + m_path.filename().string() +
                 suffix);
    }
}

void OutputFile::copyMode() const
{
    struct stat status = {};
    const mode_t mask = umask(0);
    umask(mask);
    const mode_t mode = stat(m_path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0666U & ~mask;
    if (chmod(m_temporary.c_str(), mode) != 0)
        fail(std::generic_category().message(errno));
}

void OutputFile::publish()
{
    copyMode();
    if (!sync(m_temporary))
        fail(std::generic_category().message(errno));
    // A link is made only where nothing is; not every file system has them.
    const bool linked = !m_replace && link(m_temporary.c_str(), m_path.c_str()) == 0;
    if (!m_replace && !linked && (errno == EEXIST || isThere(m_path)))
        fail("is there already; --force replaces it");
    if (!linked) {
        if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0)
            fail(std::generic_category().message(errno));
        m_temporary.clear();
    }
    sync(folderOf(m_path).string());
}

} // namespace Keldict

#include "kernel/kelfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Ombrin {

namespace {

template <typename Call>
auto retryInterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// The system would end a name at its first NUL, and reach another file.
bool isFileName(const CkelString& name)
{
    return name.toStdString().find('\0') == std::string::npos;
}

int flagsOf(CkelDevice::OpenMode mode)
{
    switch (mode) {
    case CkelDevice::ReadOnly:
        return O_RDONLY;
    case CkelDevice::WriteOnly:
        return O_WRONLY | O_CREAT | O_TRUNC;
    case CkelDevice::Append:
        return O_WRONLY | O_CREAT | O_APPEND;
    default:
        return -1;
    }
}

} // namespace

CkelDevice::CkelDevice(CkelObject* parent) : CkelObject(parent)
{
    storeherits("CkelDevice");
}

CkelDevice::~CkelDevice() = default;

CkelFile::CkelFile(const CkelString& name, CkelObject* parent) : CkelDevice(parent), m_name(name)
{
    storeherits("CkelFile");
}

CkelFile::~CkelFile()
{
    CkelFile::close();
}

bool CkelFile::exists(const CkelString& name)
{
    struct stat status = {};
    return isFileName(name) && stat(name.toStdString().c_str(), &status) == 0;
}

bool CkelFile::open(OpenMode mode)
{
    const int flags = flagsOf(mode);
    if (isOpen() || flags < 0 || !isFileName(m_name))
        return false;
    constexpr mode_t everybody = 0666; // less the umask
    m_descriptor = retryInterrupted([&] { return ::open(m_name.toStdString().c_str(), flags | O_CLOEXEC, everybody); });
    if (m_descriptor < 0)
        return false;
    setOpenMode(mode);
    struct stat status = {};
    if (fstat(m_descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
        close();
        return false;
    }
    return true;
}

void CkelFile::close()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
    setOpenMode(NotOpen);
}

CkelByteArray CkelFile::readAll()
{
    constexpr std::size_t chunk = 65536;
    struct stat status = {};
    if (openMode() != ReadOnly || fstat(m_descriptor, &status) != 0)
        return {};

    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(status.st_size));
    std::vector<char> part(chunk);
    for (;;) {
        const auto count = retryInterrupted([&] { return ::read(m_descriptor, part.data(), part.size()); });
        if (count <= 0)
            break;
        bytes.append(part.data(), static_cast<std::size_t>(count));
    }
    return CkelByteArray(std::move(bytes));
}

bool CkelFile::write(const CkelByteArray& bytes)
{
    if (openMode() != WriteOnly && openMode() != Append)
        return false;
    for (std::size_t written = 0; written < bytes.size();) {
        const auto count =
            retryInterrupted([&] { return ::write(m_descriptor, bytes.data() + written, bytes.size() - written); });
        if (count <= 0)
            return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace Ombrin

#include "source.h"

#include "failure.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

namespace Keldict {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view databaseMark = "SQLite format 3\0"sv;

[[noreturn]] void failToRead(const std::string& name, int error)
{
    throw Failure(Unreadable, name + ": " + std::generic_category().message(error));
}

int openRegularFile(const std::string& name)
{
    requireRegularFile(name);
    const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        failToRead(name, errno);
    return descriptor;
}

/// A file of the system; standard input stays open.
class Input
{
public:
    explicit Input(const std::string& name)
        : m_name(name), m_descriptor(name == "-" ? STDIN_FILENO : openRegularFile(name))
    {}

    ~Input()
    {
        if (m_descriptor != STDIN_FILENO)
            ::close(m_descriptor);
    }

    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    std::size_t size() const
    {
        struct stat status = {};
        return fstat(m_descriptor, &status) == 0 && status.st_size > 0 ? static_cast<std::size_t>(status.st_size) : 0;
    }

    /// Up to `limit` bytes are there afterwards, fewer where the file ends.
    void readUpTo(std::size_t limit, std::string& bytes)
    {
        std::size_t filled = bytes.size();
        bytes.resize(limit);
        while (filled < limit) {
            const auto count = ::read(m_descriptor, bytes.data() + filled, limit - filled);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                failToRead(m_name, errno);
            if (count == 0)
                break;
            filled += static_cast<std::size_t>(count);
        }
        bytes.resize(filled);
    }

private:
    const std::string& m_name;
    const int m_descriptor;
};

void readRest(Input& input, std::string& bytes)
{
    constexpr std::size_t chunk = 65536;
    std::size_t limit = std::max(input.size() + 1, chunk);
    for (input.readUpTo(limit, bytes); bytes.size() == limit; input.readUpTo(limit, bytes))
        limit *= 2;
}

} // namespace

void requireRegularFile(const std::string& name)
{
    struct stat status = {};
    if (stat(name.c_str(), &status) != 0 || S_ISREG(status.st_mode))
        return;
    if (S_ISDIR(status.st_mode))
        failToRead(name, EISDIR);
    throw Failure(Unreadable, name + ": is no regular file");
}

Source openSource(const std::string& name)
{
    Source source{name, Source::Kind::Json, {}};
    Input input(name);
    input.readUpTo(databaseMark.size(), source.bytes);
    if (source.bytes == databaseMark || (!source.isStandardInput() && endsWith(name, ".db")))
        source.kind = Source::Kind::Database;
    if (source.kind == Source::Kind::Json || source.isStandardInput())
        readRest(input, source.bytes);
    return source;
}

} // namespace Keldict

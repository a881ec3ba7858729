#include "display.h"

#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace Demo {

namespace {

constexpr std::size_t setWidth = 10;
constexpr std::size_t valueWidth = 16;
constexpr int liveInterval = 100; // milliseconds

// Control sequences of every terminal of today
constexpr const char* clearBelow = "\033[J";
constexpr const char* bold = "\033[1m";
constexpr const char* notBold = "\033[0m";
constexpr const char* cutLines = "\033[?7l";
constexpr const char* wrapLines = "\033[?7h";

std::string linesUp(std::size_t count)
{
    return count ? "\r\033[" + std::to_string(count) + 'A' : std::string();
}

std::size_t terminalLines()
{
    winsize size{};
    constexpr std::size_t usual = 24;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): the system's interface
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : usual;
}

} // namespace

bool isTerminal()
{
    const char* const kind = std::getenv("TERM"); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    return isatty(STDOUT_FILENO) == 1 && kind && std::string(kind) != "dumb";
}

Display::Display(bool live) : m_live(live)
{
    storeherits("Display");
    m_timer.connectTimeOut("refresh", [this] { refresh(); });
}

void Display::show(const std::vector<Row>& rows, int interval)
{
    m_rows = rows;
    std::vector<unsigned int> ids;
    for (const Row& row : rows) {
        for (const Item& item : {row.actual, row.set}) {
            if (item.ID == 0)
                continue;
            ids.push_back(item.ID);
            m_values[item.ID] = item.Value;
            m_changed.insert(item.ID);
        }
        m_nameWidth = std::max(m_nameWidth, row.actual.NameID.size());
    }
    Ombrin::CkelApplicationPlus::dataSensor()->attach(this, ids);
    m_timer.start(m_live ? liveInterval : interval);
    refresh();
}

void Display::dataSensorEvent(Ombrin::CkelDataSensorEvent* event)
{
    if (event->sensorType() != Ombrin::CkelDataSensorEvent::AnyData)
        return;
    m_values[event->id()] = static_cast<Ombrin::CkelAnyDataSensorEvent*>(event)->value();
    m_changed.insert(event->id());
}

void Display::say(const std::string& message)
{
    eraseTable();
    std::cout << message << '\n';
    if (m_live)
        draw();
    std::cout.flush();
}

void Display::setStatus(const std::string& status)
{
    m_status = status;
}

void Display::finish()
{
    m_timer.stop();
    refresh();
    m_rows.clear();
    m_drawn = 0;
}

void Display::refresh()
{
    if (m_live)
        draw();
    else
        printChanges();
    std::cout.flush();
    m_changed.clear();
}

void Display::eraseTable()
{
    if (m_drawn != 0)
        std::cout << linesUp(m_drawn) << clearBelow;
    m_drawn = 0;
}

void Display::draw()
{
    if (m_rows.empty())
        return;
    constexpr std::size_t besidesRows = 4; // head, status, and one line free above and below
    const std::size_t count = std::min(m_rows.size(), terminalLines() - std::min(terminalLines(), besidesRows));
    std::string table = linesUp(m_drawn) + clearBelow + cutLines + header() + '\n';
    for (std::size_t i = 0; i < count; ++i)
        table += line(m_rows[i]) + '\n';
    std::cout << table << "  " << m_status << '\n' << wrapLines;
    m_drawn = count + 2;
}

std::string Display::header() const
{
    return "  " + alignedLeft("Item", m_nameWidth) + alignedRight("Set", setWidth) + alignedRight("Actual", valueWidth);
}

std::string Display::line(const Row& row) const
{
    const std::string value = alignedRight(valueOf(row), valueWidth);
    return "  " + alignedLeft(row.actual.NameID, m_nameWidth) + alignedRight(setPointOf(row), setWidth) +
           (hasChanged(row) ? bold + value + notBold : value);
}

void Display::printChanges()
{
    const std::chrono::duration<double> now = std::chrono::steady_clock::now() - m_begin;
    for (const Row& row : m_rows) {
        if (!hasChanged(row))
            continue;
        std::cout << alignedRight(fixed(now.count(), 1), 6) << " s  " << alignedLeft(row.actual.NameID, m_nameWidth)
                  << alignedRight(valueOf(row), valueWidth);
        if (row.set.ID != 0)
            std::cout << "  (set " << setPointOf(row) << ')';
        std::cout << '\n';
    }
}

std::string Display::valueOf(const Row& row) const
{
    const CkelVariant& value = m_values.at(row.actual.ID);
    const unsigned long long index = value.toULongLong();
    return index < row.words.size() ? row.words[static_cast<std::size_t>(index)] : shown(row.actual, value);
}

std::string Display::setPointOf(const Row& row) const
{
    return row.set.ID != 0 ? shown(row.set, m_values.at(row.set.ID)) : std::string();
}

bool Display::hasChanged(const Row& row) const
{
    return m_changed.count(row.actual.ID) != 0 || m_changed.count(row.set.ID) != 0;
}

} // namespace Demo

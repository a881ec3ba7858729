#include "production.h"

#include "kernel/keldatasensor.h"
#include "loading.h"

#include <algorithm>

namespace Demo {

namespace {

using namespace std::chrono_literals;

constexpr int stepInterval = 50; // milliseconds
constexpr int stepsPerSecond = 1000 / stepInterval;
constexpr int plainPrints = 5; // in one run, but no more than one each second

// Changes are collected once a second, and one block of them a second is written. A block of deletions leaves the file
// as it is, so two writes may be two seconds apart.
constexpr auto quietTime = 3s;
constexpr auto longestWait = 30s;

int plainInterval(int seconds)
{
    return std::max(1, seconds / plainPrints) * 1000;
}

} // namespace

ChangeLog::ChangeLog()
{
    storeherits("ChangeLog");
    Ombrin::CkelApplicationPlus::dataSensor()->attach(this);
}

void ChangeLog::dataSensorEvent(Ombrin::CkelDataSensorEvent* event)
{
    ++m_count;
    m_ids.insert(event->id());
}

Production::Production(Ombrin::CkelApplicationPlus& application, Storage& storage, const Options& options,
                       const std::atomic<int>& interrupted)
    : m_application(application),
      m_storage(storage),
      m_options(options),
      m_interrupted(interrupted),
      m_steps(options.seconds * stepsPerSecond),
      m_simulation(makeSimulation(storage, m_steps)),
      m_display(!options.plain && isTerminal()),
      m_panel(storage, m_display, m_simulation->rows()),
      m_phase(isDatabase(options) ? Phase::Registering : Phase::Producing),
      m_phaseBegin(SavedFile::Clock::now())
{}

bool Production::run()
{
    if (m_phase == Phase::Registering)
        registerItems(m_storage);
    m_display.say(m_simulation->description() + '\n');
    m_display.show(m_simulation->rows(), plainInterval(m_options.seconds));
    m_timer.connectTimeOut("production", [this] { onTimeOut(); });
    m_timer.start(stepInterval);
    m_application.exec();
    return m_success;
}

void Production::onTimeOut()
{
    m_file.look();
    if (m_interrupted != 0)
        return end(false);
    switch (m_phase) {
    case Phase::Registering:
        return registerAll();
    case Phase::Producing:
        return produce();
    case Phase::Settling:
        return settle();
    case Phase::Measuring:
        return measure();
    }
}

void Production::registerAll()
{
    m_display.setStatus("waiting until the library has collected all items");
    if (!isRegistering(m_storage))
        enter(Phase::Producing);
}

void Production::produce()
{
    if (m_step == m_steps) {
        m_display.refresh();
        m_display.say("Production stopped. Waiting until all changes have reached the file ...");
        return enter(Phase::Settling);
    }
    m_simulation->step();
    m_panel.goOn(static_cast<double>(m_step) / m_steps);
    ++m_step;
    m_display.setStatus(progress());
}

void Production::settle()
{
    m_display.setStatus("waiting until " + std::string(savedValuesFile) + " comes to rest");
    if (std::min(m_file.quiet(), inPhase()) < quietTime && inPhase() < longestWait)
        return;
    const std::string change = m_panel.changeOneMore();
    if (change.empty())
        return end(true);
    m_display.say(change + " while nothing else changes ...");
    enter(Phase::Measuring);
}

void Production::measure()
{
    m_display.setStatus("waiting for that one change");
    const std::chrono::duration<double> taken = inPhase();
    if (m_file.quiet() < inPhase()) {
        m_display.say("... and " + std::string(savedValuesFile) + " was written " + fixed(taken.count(), 1) +
                      " s later.");
        end(true);
    } else if (taken > longestWait) {
        m_display.say("... but the file was not written within " + fixed(taken.count(), 0) + " s.");
        end(false);
    }
}

void Production::enter(Phase phase)
{
    m_phase = phase;
    m_phaseBegin = SavedFile::Clock::now();
}

void Production::end(bool success)
{
    m_success = success;
    m_timer.stop();
    m_display.setStatus(std::to_string(m_changes.count()) + " changes announced");
    m_display.finish();
    m_application.quit();
}

std::string Production::progress() const
{
    constexpr int width = 30;
    const int done = m_step * width / m_steps;
    return '[' + std::string(static_cast<std::size_t>(done), '#') +
           std::string(static_cast<std::size_t>(width - done), '-') + "] " +
           fixed(static_cast<double>(m_step) / stepsPerSecond, 1) + " of " + std::to_string(m_options.seconds) +
           " s, " + std::to_string(m_changes.count()) + " changes announced";
}

} // namespace Demo

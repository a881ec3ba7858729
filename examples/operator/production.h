#pragma once

#include "commandline.h"
#include "display.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keltimer.h"
#include "panel.h"
#include "savedfile.h"
#include "simulation.h"

#include <atomic>
#include <memory>
#include <set>

namespace Demo {

/// Notes which items change, all of them.
class ChangeLog : public Ombrin::CkelObject
{
public:
    ChangeLog();
    void dataSensorEvent(Ombrin::CkelDataSensorEvent* event) override;

    std::size_t count() const { return m_count; }
    const std::set<unsigned int>& ids() const { return m_ids; }

private:
    std::size_t m_count = 0;
    std::set<unsigned int> m_ids;
};

/// One run: production for some seconds, then the wait until every change has been saved. One timer drives it all.
class Production
{
public:
    /// `interrupted` is looked at now and then; once it is set, the run ends.
    Production(Ombrin::CkelApplicationPlus& application, Storage& storage, const Options& options,
               const std::atomic<int>& interrupted);

    /// Turns the application's loop until the run has ended. False when it was interrupted or not everything was
    /// saved.
    bool run();

    const std::set<unsigned int>& changedItems() const { return m_changes.ids(); }
    const std::vector<unsigned int>& deletedItems() const { return m_panel.deleted(); }

private:
    enum class Phase
    {
        Registering,
        Producing,
        Settling,
        Measuring
    };

    void onTimeOut();
    void registerAll();
    void produce();
    void settle();
    void measure();
    void enter(Phase phase);
    void end(bool success);
    std::string progress() const;
    SavedFile::Clock::duration inPhase() const { return SavedFile::Clock::now() - m_phaseBegin; }

    Ombrin::CkelApplicationPlus& m_application;
    Storage& m_storage;
    const Options& m_options;
    const std::atomic<int>& m_interrupted;
    const int m_steps;
    int m_step = 0;
    const std::unique_ptr<Simulation> m_simulation;
    ChangeLog m_changes;
    Display m_display;
    Panel m_panel;
    SavedFile m_file;
    Phase m_phase;
    SavedFile::Clock::time_point m_phaseBegin;
    bool m_success = false;
    Ombrin::CkelTimer m_timer;
};

} // namespace Demo

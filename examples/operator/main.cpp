#include "commandline.h"
#include "datastorage/keldatastoragefactory.h"
#include "kernel/kelapplicationplus.h"
#include "loading.h"
#include "production.h"
#include "restartreport.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

using namespace Demo;

constexpr int wrongUse = 2;
constexpr int signalStatus = 128; // what a shell adds to a signal's number

std::atomic<int> interrupted{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

extern "C" void onSignal(int signal)
{
    interrupted = signal;
}

void catchSignals()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // a second one ends the program at once
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int fail(const std::string& message)
{
    std::cout.flush();
    std::cerr << "kel_operator: " << message << '\n';
    return wrongUse;
}

Storage& theStorage()
{
    return *Ombrin::CkelDBStorageFactory::instance()->get(Storage::MemoryStorage);
}

/// Becomes a new process, which knows of this one only what stands in files. Returns when that fails.
void restart(const Options& options)
{
    std::vector<std::string> words = restartArguments(options);
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    words.insert(words.begin(), program);
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    std::cout.flush();
    execv(program.c_str(), pointers.data());
}

/// The first process. Returns an exit status, or 0 for the restart.
int produce(Ombrin::CkelApplicationPlus& application, const Options& options)
{
    catchSignals();
    Storage& storage = theStorage();
    if (const std::string trouble = load(storage, options); !trouble.empty())
        return fail(trouble);

    const std::vector<Item> before = allItems(storage);
    Production production(application, storage, options, interrupted);
    const bool saved = production.run();
    if (interrupted != 0) {
        std::cout << "Interrupted. What had reached the file is kept.\n";
        return signalStatus + interrupted;
    }
    if (!saved)
        return EXIT_FAILURE;
    if (!writeExpected(storage, before, production.changedItems()))
        return fail("Cannot write in the folder " + options.folder.string());
    return EXIT_SUCCESS;
}

/// The second process.
int showRestored(const Options& options)
{
    std::cout << "\n--- Restart: the program starts anew and knows only what its files hold ---\n";
    Storage& storage = theStorage();
    if (const std::string trouble = load(storage, options); !trouble.empty())
        return fail(trouble);
    return reportRestored(storage) ? EXIT_SUCCESS : EXIT_FAILURE;
}

int run(int argc, char** argv)
{
    Options options;
    if (const auto status = parseCommandLine(argc, argv, options))
        return *status;
    if (const std::string trouble = prepareFiles(options); !trouble.empty())
        return fail(trouble);
    int status = EXIT_SUCCESS;
    {
        Ombrin::CkelApplicationPlus application(argc, argv);
        if (options.showRestored)
            return showRestored(options);
        status = produce(application, options);
    }
    if (status == EXIT_SUCCESS) {
        restart(options);
        return fail("Cannot start anew");
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "kel_operator: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}

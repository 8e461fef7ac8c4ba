#include "vekSubjectShutdownNotifier.h"
#include "vekSubjectShutdownObserver.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::chrono::seconds kPatience(30);

size_t occurrences(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++count;
    }
    return count;
}

// Expects the lines in this order in the log text, others allowed between.
void expectInOrder(const std::string& log, const std::vector<std::string>& lines)
{
    size_t from = 0;
    for (const std::string& line : lines) {
        const size_t at = log.find(line, from);
        ASSERT_NE(std::string::npos, at) << "missing, or out of order: " << line << "\n--- log:\n" << log;
        from = at + line.size();
    }
}

} // namespace

TEST(ShutdownObservers, AnAttachedObserverHearsTheShutdown)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("SASResourceManager");
    vekSubjectShutdownObserver observer("ControllerFactory", &subject);

    EXPECT_EQ(&subject, observer.getSubject());
    EXPECT_EQ(1u, subject.getObserverCount());
    EXPECT_FALSE(observer.isSubjectShutdownInitiated());
    EXPECT_FALSE(subject.isSubjectShutdownInitiated());

    subject.signalSubjectShutdown();

    EXPECT_TRUE(observer.isSubjectShutdownInitiated());
    EXPECT_TRUE(subject.isSubjectShutdownInitiated());
    // Still registered after the signal: it leaves by its own destruction.
    EXPECT_EQ(1u, subject.getObserverCount());
    expectInOrder(debugLog.newText(),
                  {"DSSN: Subject[SASResourceManager]: created.",
                   "Register observer [ControllerFactory] in construction with subject [SASResourceManager].",
                   "DSSN: Subject[SASResourceManager]: Received attach request for observer [ControllerFactory].",
                   "Observer[ControllerFactory]: Processing attach notification from subject [SASResourceManager].",
                   "DSSN: Subject[SASResourceManager]: Observer [ControllerFactory] successfully added to registered "
                   "observers list.",
                   "Observer[ControllerFactory]: created.",
                   "DSSN: Subject[SASResourceManager]: # of registered observers = [1].",
                   "DSSN: Subject[SASResourceManager]: signalSubjectShutdown() called.",
                   "DSSN: Subject[SASResourceManager]: Notifying observer [ControllerFactory] of subject shutdown "
                   "event.",
                   "DSSN: Subject[SASResourceManager]: Notified observer [ControllerFactory] of subject shutdown."});
}

TEST(ShutdownObservers, ObserversAreNotifiedInOrderOfRegistration)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("RM");
    vekSubjectShutdownObserver first("first", &subject);
    vekSubjectShutdownObserver second("second", &subject);
    vekSubjectShutdownObserver third("third", &subject);
    EXPECT_EQ(3u, subject.getObserverCount());

    subject.signalSubjectShutdown();

    EXPECT_TRUE(first.isSubjectShutdownInitiated());
    EXPECT_TRUE(second.isSubjectShutdownInitiated());
    EXPECT_TRUE(third.isSubjectShutdownInitiated());
    expectInOrder(debugLog.newText(), {"Subject[RM]: Notified observer [first] of subject shutdown.",
                                       "Subject[RM]: Notified observer [second] of subject shutdown.",
                                       "Subject[RM]: Notified observer [third] of subject shutdown."});
}

TEST(ShutdownObservers, AttachingAfterTheSignalIsRefused)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekLogTail mainLog(vekTestMainLogPath());
    vekSubjectShutdownNotifier subject("RM");
    subject.signalSubjectShutdown();

    vekSubjectShutdownObserver late("late", &subject);

    EXPECT_FALSE(late.isSubjectShutdownInitiated());
    EXPECT_EQ(nullptr, late.getSubject());
    EXPECT_EQ(0u, subject.getObserverCount());
    const std::string debug = debugLog.newText();
    EXPECT_NE(std::string::npos,
              debug.find("DSSN: Subject[RM]: Not registering observer [late] since shutdown is already initiated."));
    EXPECT_EQ(0u, occurrences(debug, "Observer[late]: created."));
    EXPECT_EQ(0u, occurrences(debug, "Processing attach notification"));
    const std::string warning =
        "Failed to register observer [late] with subject [RM] during construction. (status: " +
        std::to_string(VEK_OBSERVABLE_STATUS_SHUTDOWN_INITIATED) + ")";
    EXPECT_TRUE(mainLog.contains(warning)) << mainLog.newText();

    // The refused observer is on no list, so going away asks nothing of anyone.
    vekLogTail afterwards(vekTestDebugLogPath());
    {
        vekSubjectShutdownObserver other("other");
    }
    EXPECT_EQ(0u, occurrences(afterwards.newText(), "Attempting de-registration"));
}

TEST(ShutdownObservers, SignalWithoutObserversSetsTheFlag)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("Lonely");
    subject.signalSubjectShutdown();
    EXPECT_TRUE(subject.isSubjectShutdownInitiated());
    const std::string debug = debugLog.newText();
    EXPECT_NE(std::string::npos, debug.find("Subject[Lonely]: signalSubjectShutdown() called."));
    EXPECT_EQ(0u, occurrences(debug, "Notifying observer"));
}

TEST(ShutdownObservers, ASecondSignalChangesNothing)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("RM");
    vekSubjectShutdownObserver observer("worker", &subject);
    subject.signalSubjectShutdown();
    subject.signalSubjectShutdown();

    EXPECT_TRUE(subject.isSubjectShutdownInitiated());
    EXPECT_TRUE(observer.isSubjectShutdownInitiated());
    const std::string debug = debugLog.newText();
    EXPECT_EQ(2u, occurrences(debug, "Subject[RM]: signalSubjectShutdown() called."));
    EXPECT_EQ(1u, occurrences(debug, "Subject[RM]: Shutdown already signalled prevously."));
    EXPECT_EQ(1u, occurrences(debug, "Subject[RM]: Notifying observer [worker] of subject shutdown event."));
}

TEST(ShutdownObservers, AnObserverGoneBeforeItsSubjectLeavesNoEntry)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("RM");
    vekSubjectShutdownObserver stays("stays", &subject);
    {
        vekSubjectShutdownObserver brief("brief", &subject);
        EXPECT_EQ(2u, subject.getObserverCount());
    }
    EXPECT_EQ(1u, subject.getObserverCount());

    // Would touch freed memory if the entry were still there.
    subject.signalSubjectShutdown();
    EXPECT_TRUE(stays.isSubjectShutdownInitiated());

    const std::string debug = debugLog.newText();
    expectInOrder(debug, {"Observer [brief]: Clearing subject during cleanup.",
                          "Attempting de-registration of observer [brief] from subject [RM] during cleanup.",
                          "DSSN: Subject[RM]: Received detach request for observer [brief].",
                          "DSSN: Subject[RM]: Detached observer [brief].", "Observer[brief]: destroyed."});
    EXPECT_EQ(0u, occurrences(debug, "Notifying observer [brief]"));
}

TEST(ShutdownObservers, OnlyTheShutdownAspectIsAccepted)
{
    struct Case {
        vekObservableAspect aspect;
    };
    const Case cases[] = {{VEK_OBSERVABLE_ASPECT_NIC}, {VEK_OBSERVABLE_ASPECT_FC}, {0}, {-1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.aspect);
        vekLogTail debugLog(vekTestDebugLogPath());
        vekSubjectShutdownNotifier subject("RM");
        vekSubjectShutdownObserver observer("worker");

        // Refused by the subject before the observer is even asked.
        EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, subject.attach(&observer, c.aspect));
        EXPECT_EQ(0u, subject.getObserverCount());
        EXPECT_EQ(nullptr, observer.getSubject());
        const std::string aspectText = "[" + std::to_string(c.aspect) + "]";
        EXPECT_TRUE(debugLog.contains("DSSN: Subject[RM]: Observable aspect " + aspectText + " not supported."));

        // And by the observer when some other subject asks.
        EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, observer.notifyAttach(&subject, c.aspect));
        EXPECT_TRUE(debugLog.contains("Observer[worker]: Unrecognized aspect " + aspectText + "."));
        EXPECT_EQ(nullptr, observer.getSubject());

        // A change of that aspect is not a shutdown.
        ASSERT_EQ(VEK_OBSERVABLE_STATUS_SUCCESS, subject.attach(&observer, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
        observer.notifyChange(&subject, c.aspect, "RM");
        EXPECT_FALSE(observer.isSubjectShutdownInitiated());
    }
}

TEST(ShutdownObservers, AnObserverServesOneSubjectOnly)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier home("home");
    vekSubjectShutdownNotifier stranger("stranger");
    vekSubjectShutdownObserver observer("worker", &home);

    const vekObservableStatus status = stranger.attach(&observer, VEK_OBSERVABLE_ASPECT_SHUTDOWN);
    EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, status);
    EXPECT_EQ(0u, stranger.getObserverCount());
    EXPECT_EQ(&home, observer.getSubject());

    // Twice to the same subject would list it twice and leave a stale entry
    // behind after its detach.
    EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, home.attach(&observer, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
    EXPECT_EQ(1u, home.getObserverCount());

    // A foreign subject's shutdown is not ours.
    stranger.signalSubjectShutdown();
    observer.notifyChange(&stranger, VEK_OBSERVABLE_ASPECT_SHUTDOWN, "stranger");
    EXPECT_FALSE(observer.isSubjectShutdownInitiated());

    // Nor can it detach us.
    EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, observer.notifyDetach(&stranger, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
    EXPECT_EQ(&home, observer.getSubject());

    home.signalSubjectShutdown();
    EXPECT_TRUE(observer.isSubjectShutdownInitiated());

    const std::string debug = debugLog.newText();
    expectInOrder(debug, {"Observer[worker]: Attach notification received from subject [stranger] when already "
                          "attached to subject [home].",
                          "DSSN: Subject[stranger]: Observer [worker] failed notify-attach query with status [" +
                              std::to_string(status) + "].",
                          "Observer[worker]: Duplicate attach notification from subject [home].",
                          "Observer[worker]: Not detached due to unregistered observer [true], unrecognized subject "
                          "[stranger] or aspect [2]."});
}

TEST(ShutdownObservers, DetachingAnUnknownObserverIsLoggedAndHarmless)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("RM");
    vekSubjectShutdownObserver listed("listed", &subject);
    vekSubjectShutdownObserver stranger("stranger");

    subject.detach(&stranger);

    EXPECT_EQ(1u, subject.getObserverCount());
    EXPECT_TRUE(debugLog.contains("DSSN: Subject[RM]: Received detach request for observer [stranger]."));
    EXPECT_TRUE(debugLog.contains("DSSN: Subject[RM]: Observer [stranger] not found in registered observers list!"));
}

TEST(ShutdownObservers, DetachAllReleasesEveryObserver)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("RM");
    auto a = std::make_unique<vekSubjectShutdownObserver>("a", &subject);
    auto b = std::make_unique<vekSubjectShutdownObserver>("b", &subject);

    subject.detachAllObservers();

    EXPECT_EQ(0u, subject.getObserverCount());
    EXPECT_EQ(nullptr, a->getSubject());
    EXPECT_EQ(nullptr, b->getSubject());
    subject.signalSubjectShutdown();
    EXPECT_FALSE(a->isSubjectShutdownInitiated());

    // Already let go, so their destruction does not call on the subject.
    a.reset();
    b.reset();
    const std::string debug = debugLog.newText();
    expectInOrder(debug, {"DSSN: Subject[RM]: Detaching all observers.",
                          "Observer[a]: Detaching from subject [RM].", "DSSN: Subject[RM]: Detached observer [a].",
                          "Observer[b]: Detaching from subject [RM].", "DSSN: Subject[RM]: Detached observer [b].",
                          "Observer[a]: destroyed.", "Observer[b]: destroyed."});
    EXPECT_EQ(0u, occurrences(debug, "Attempting de-registration"));
}

TEST(ShutdownObservers, ASubjectGoneBeforeItsObserversLetsThemGo)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    auto subject = std::make_unique<vekSubjectShutdownNotifier>("RM");
    vekSubjectShutdownObserver observer("worker", subject.get());

    subject.reset();

    EXPECT_EQ(nullptr, observer.getSubject());
    EXPECT_FALSE(observer.isSubjectShutdownInitiated());
    EXPECT_TRUE(debugLog.contains("Observer[worker]: Detaching from subject [RM]."));
}

TEST(ShutdownObservers, AnObserverMadeWithoutSubjectAttachesLater)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekSubjectShutdownNotifier subject("RM");
    vekSubjectShutdownObserver observer("factory");
    EXPECT_EQ(nullptr, observer.getSubject());
    EXPECT_EQ(-1, observer.init());

    EXPECT_EQ(VEK_OBSERVABLE_STATUS_SUCCESS, subject.attach(&observer, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
    subject.signalSubjectShutdown();

    EXPECT_TRUE(observer.isSubjectShutdownInitiated());
    EXPECT_TRUE(debugLog.contains("Observer[factory]: created."));
    EXPECT_FALSE(debugLog.contains("Register observer [factory]"));
}

TEST(ShutdownObservers, AWorkerPollingItsObserverSeesTheSignal)
{
    vekSubjectShutdownNotifier subject("NVMeResourceManager");
    vekSubjectShutdownObserver observer("discovery", &subject);
    std::atomic<int> polls(0);
    std::atomic<bool> sawObserver(false);
    std::atomic<bool> sawSubject(false);

    std::thread worker([&] {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (std::chrono::steady_clock::now() < deadline) {
            if (observer.isSubjectShutdownInitiated()) {
                sawObserver = true;
                sawSubject = subject.isSubjectShutdownInitiated();
                return;
            }
            ++polls;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    // Let it poll at least once while nothing has happened yet.
    while (polls.load() == 0) {
        std::this_thread::yield();
    }
    subject.signalSubjectShutdown();
    worker.join();

    EXPECT_TRUE(sawObserver);
    EXPECT_TRUE(sawSubject);
}

TEST(ShutdownObservers, ObserversRacingTheSignalEitherHearItOrAreRefused)
{
    vekSubjectShutdownNotifier subject("RM");
    const int workers = 8;
    std::atomic<int> ready(0);
    std::atomic<int> consistent(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < workers; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            vekSubjectShutdownObserver observer("worker" + std::to_string(i), &subject);
            const auto deadline = std::chrono::steady_clock::now() + kPatience;
            while (!subject.isSubjectShutdownInitiated() && std::chrono::steady_clock::now() < deadline) {
                std::this_thread::yield();
            }
            // Attached before the signal means notified; after it means refused.
            const bool attached = observer.getSubject() == &subject;
            if (attached == observer.isSubjectShutdownInitiated()) {
                ++consistent;
            }
        });
    }
    while (ready.load() < workers / 2) {
        std::this_thread::yield();
    }
    subject.signalSubjectShutdown();
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(workers, consistent.load());
    EXPECT_EQ(0u, subject.getObserverCount());
}

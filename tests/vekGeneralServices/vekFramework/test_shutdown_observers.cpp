#include "vekSubjectShutdownNotifier.h"
#include "vekSubjectShutdownObserver.h"
#include "vekTestResourceManager.h"
#include "vekTestRoot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// A late observer, made after the signal, is refused: it would wait for a
// shutdown that has already been told.
TEST(ShutdownObservers, ObserversHearTheShutdownOnceInOrderOfRegistrationAndLateOnesAreRefused)
{
    vekLogTail debugLog(vekTestDebugLogPath());
    vekLogTail mainLog(vekTestMainLogPath());
    vekSubjectShutdownNotifier subject("SAS");
    vekSubjectShutdownObserver first("first", &subject);
    vekSubjectShutdownObserver second("second", &subject);
    EXPECT_FALSE(first.isSubjectShutdownInitiated());

    subject.signalSubjectShutdown();
    subject.signalSubjectShutdown();

    EXPECT_TRUE(subject.isSubjectShutdownInitiated());
    EXPECT_TRUE(first.isSubjectShutdownInitiated());
    EXPECT_TRUE(second.isSubjectShutdownInitiated());
    // Still registered after the signal: they leave by their own destruction.
    EXPECT_EQ(2u, subject.getObserverCount());
    EXPECT_TRUE(vekInOrder(debugLog.newText(), {"Subject[SAS]: Notified observer [first] of subject shutdown.",
                                                "Subject[SAS]: Notified observer [second] of subject shutdown.",
                                                "Subject[SAS]: Shutdown already signalled prevously."}));
    // Nobody is told twice.
    EXPECT_EQ(1u, vekOccurrences(debugLog.newText(), "Notifying observer [second]"));

    vekSubjectShutdownObserver late("late", &subject);
    EXPECT_FALSE(late.isSubjectShutdownInitiated());
    EXPECT_EQ(nullptr, late.getSubject());
    EXPECT_EQ(2u, subject.getObserverCount());
    EXPECT_TRUE(debugLog.contains("DSSN: Subject[SAS]: Not registering observer [late] since shutdown is already "
                                  "initiated."));
    EXPECT_TRUE(mainLog.contains("Failed to register observer [late] with subject [SAS] during construction. "
                                 "(status: " + std::to_string(VEK_OBSERVABLE_STATUS_SHUTDOWN_INITIATED) + ")"))
        << mainLog.newText();

    vekSubjectShutdownNotifier lonely("Lonely");
    lonely.signalSubjectShutdown();
    EXPECT_TRUE(lonely.isSubjectShutdownInitiated());
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
    // An observer it does not know is only logged.
    vekSubjectShutdownObserver stranger("stranger");
    subject.detach(&stranger);
    EXPECT_EQ(1u, subject.getObserverCount());
    // Would touch freed memory if the entry were still there.
    subject.signalSubjectShutdown();
    EXPECT_TRUE(stays.isSubjectShutdownInitiated());
    EXPECT_TRUE(debugLog.contains("DSSN: Subject[RM]: Observer [stranger] not found in registered observers list!"));
}

TEST(ShutdownObservers, OnlyTheShutdownAspectIsAccepted)
{
    for (const vekObservableAspect aspect : {VEK_OBSERVABLE_ASPECT_NIC, VEK_OBSERVABLE_ASPECT_FC, 0, -1}) {
        SCOPED_TRACE(aspect);
        vekLogTail debugLog(vekTestDebugLogPath());
        vekSubjectShutdownNotifier subject("RM");
        vekSubjectShutdownObserver observer("worker");
        // Refused by the subject before the observer is even asked, and by the
        // observer when a subject asks anyway.
        EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, subject.attach(&observer, aspect));
        EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, observer.notifyAttach(&subject, aspect));
        EXPECT_EQ(0u, subject.getObserverCount());
        EXPECT_EQ(nullptr, observer.getSubject());
        const std::string refusal = "Subject[RM]: Observable aspect [" + std::to_string(aspect) + "] not supported.";
        EXPECT_TRUE(debugLog.contains(refusal));
        // A change of that aspect is not a shutdown.
        ASSERT_EQ(VEK_OBSERVABLE_STATUS_SUCCESS, subject.attach(&observer, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
        observer.notifyChange(&subject, aspect, "RM");
        EXPECT_FALSE(observer.isSubjectShutdownInitiated());
    }
}

TEST(ShutdownObservers, AnObserverServesOneSubjectOnly)
{
    vekSubjectShutdownNotifier home("home");
    vekSubjectShutdownNotifier stranger("stranger");
    vekSubjectShutdownObserver observer("worker", &home);

    EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, stranger.attach(&observer, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
    EXPECT_EQ(0u, stranger.getObserverCount());
    // Twice to the same subject would list it twice and leave a stale entry
    // behind after its detach.
    EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, home.attach(&observer, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
    EXPECT_EQ(1u, home.getObserverCount());
    // A foreign subject's shutdown is not ours, nor can it detach us.
    stranger.signalSubjectShutdown();
    observer.notifyChange(&stranger, VEK_OBSERVABLE_ASPECT_SHUTDOWN, "stranger");
    EXPECT_FALSE(observer.isSubjectShutdownInitiated());
    EXPECT_NE(VEK_OBSERVABLE_STATUS_SUCCESS, observer.notifyDetach(&stranger, VEK_OBSERVABLE_ASPECT_SHUTDOWN));
    home.signalSubjectShutdown();
    EXPECT_TRUE(observer.isSubjectShutdownInitiated());
}

// detachAllObservers() and the subject's destruction alike let every observer
// go, so that their own destruction asks nothing of the subject.
TEST(ShutdownObservers, ASubjectLetsGoOfAllItsObservers)
{
    for (const bool destroySubject : {false, true}) {
        SCOPED_TRACE(destroySubject ? "subject destroyed" : "detachAllObservers");
        vekLogTail debugLog(vekTestDebugLogPath());
        auto subject = std::make_unique<vekSubjectShutdownNotifier>("RM");
        auto a = std::make_unique<vekSubjectShutdownObserver>("a", subject.get());
        auto b = std::make_unique<vekSubjectShutdownObserver>("b", subject.get());
        if (destroySubject) {
            subject.reset();
        } else {
            subject->detachAllObservers();
            EXPECT_EQ(0u, subject->getObserverCount());
            subject->signalSubjectShutdown();
        }
        EXPECT_EQ(nullptr, a->getSubject());
        EXPECT_EQ(nullptr, b->getSubject());
        EXPECT_FALSE(a->isSubjectShutdownInitiated());
        a.reset();
        b.reset();
        EXPECT_TRUE(debugLog.contains("DSSN: Subject[RM]: Detaching all observers."));
        EXPECT_FALSE(debugLog.contains("Attempting de-registration"));
    }
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
            const auto deadline = std::chrono::steady_clock::now() + kVekTestPatience;
            while (!subject.isSubjectShutdownInitiated() && std::chrono::steady_clock::now() < deadline) {
                std::this_thread::yield();
            }
            // Attached before the signal means notified; after it means refused.
            consistent += (observer.getSubject() == &subject) == observer.isSubjectShutdownInitiated() ? 1 : 0;
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

// Libraries and symbols that many threads load, look up and release concurrently.

#include "DynPlugins.hpp"

#include <support/LongRun.hpp>

#include <atomic>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace dyntest;

constexpr int THREADS = 8;

/** Runs `work(number)` on all threads; each waits until all have started. */
template <class Work>
void onThreads(Work work)
{
    std::atomic<int> missing(THREADS);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&missing, work, i] {
            --missing;
            while (missing != 0) {
                std::this_thread::yield();
            }
            work(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/** The references of one thread, and its random operations on them. */
class RandomUser
{
public:
    explicit RandomUser(int number) : random(static_cast<unsigned int>(number)) {}

    void step()
    {
        switch (random() % 8) {
        case 0:
            library = DynLibrary::load(PLAIN, random() % 2 == 0);
            break;
        case 1:
            library.clear();
            break;
        case 2:
            lookUp(value, "dyn_plain_value");
            break;
        case 3:
            lookUp(function, "dyn_plain_function");
            break;
        case 4:
            value.clear();
            break;
        case 5:
            function.clear();
            break;
        case 6:
            lookUpAbsent();
            break;
        default:
            releaseExplicitly();
        }
        use();
    }

private:
    void lookUp(DynSymbolRef& symbol, const String& name)
    {
        symbol = (!!library ? library : DynLibrary::load(PLAIN))->symbol(name);
    }

    void lookUpAbsent() const
    {
        if (!!library) {
            EXPECT_THROW(library->symbol("dyn_no_such_symbol"), system_error);
        }
    }

    /** Releases a reference by the overload that may throw, and checks the cache explicitly. */
    void releaseExplicitly()
    {
        if (!!value) {
            const DynSymbol& symbol = *value;
            symbol.acquireRef();
            symbol.releaseRef();
            DynLoaderMgr::manager()->checkRefs(symbol);
            DynLoaderMgr::manager()->checkRefs(*symbol.library());
        }
    }

    /** Checks that the referenced symbols can be used. */
    void use() const
    {
        if (!!value) {
            EXPECT_EQ(17, valueOf(value));
        }
        if (!!function) {
            EXPECT_EQ(20, reinterpret_cast<int (*)(int)>(function->func())(3));
            EXPECT_EQ(PLAIN, function->library()->name());
        }
    }

    std::minstd_rand random;
    ConstDynLibraryRef library;
    DynSymbolRef value;
    DynSymbolRef function;
};

int rounds()
{
    return (support::isLongRun() ? 100000 : 20000) / THREADS;
}

TEST(DynThreads, LoadLookUpAndReleaseAtRandom)
{
    onThreads([](int number) {
        RandomUser user(number);
        for (int i = 0; i < rounds(); ++i) {
            user.step();
        }
    });
    EXPECT_FALSE(isMapped(PLAIN));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true)) << "no library is left";
}

TEST(DynThreads, LoadAndUnloadTheSameLibrary)
{
    // Each reference is short-lived: in nearly each round a thread releases the last one.
    onThreads([](int) {
        for (int i = 0; i < rounds(); ++i) {
            EXPECT_EQ(5, valueOf(DynLibrary::load(OTHER)->symbol("dyn_other_value")));
        }
    });
    EXPECT_FALSE(isMapped(OTHER));
    EXPECT_EQ(2u, DynLoaderMgr::manager()->refCount(true));
}

TEST(DynThreads, LookUpTheSameSymbol)
{
    const ConstDynLibraryRef library = DynLibrary::load(OTHER);
    const DynSymbolRef held = library->symbol("dyn_other_value");
    onThreads([&](int) {
        for (int i = 0; i < rounds(); ++i) {
            EXPECT_EQ(held, library->symbol("dyn_other_value"));
        }
    });
    EXPECT_EQ(2u, held->refCount(true));
    EXPECT_EQ(3u, library->refCount(true));
}

TEST(DynThreads, CopyReferencesAndReleaseTheLastOne)
{
    for (int i = 0; i < rounds() / 50; ++i) {
        const DynSymbolRef shared = DynLibrary::load(OTHER)->symbol("dyn_other_value");
        std::vector<DynSymbolRef> copies(THREADS, shared);
        const_cast<DynSymbolRef&>(shared).clear();
        onThreads([&copies](int number) {
            DynSymbolRef& own = copies[static_cast<std::size_t>(number)];
            EXPECT_EQ(5, valueOf(own));
            own.clear();
        });
        EXPECT_FALSE(isMapped(OTHER));
    }
}

// Two and three threads that release or look up concurrently, in every combination.

enum class Actor { THROWING_RELEASE, NON_THROWING_RELEASE, NEWCOMER };

constexpr Actor ACTORS[] = {Actor::THROWING_RELEASE, Actor::NON_THROWING_RELEASE, Actor::NEWCOMER};

const char* nameOf(Actor actor)
{
    switch (actor) {
    case Actor::THROWING_RELEASE:
        return " throwing";
    case Actor::NON_THROWING_RELEASE:
        return " non-throwing";
    default:
        return " newcomer";
    }
}

/** Returns each pair and each triple, regardless of order. */
std::vector<std::vector<Actor>> allCombinations()
{
    std::vector<std::vector<Actor>> combinations;
    for (const Actor first : ACTORS) {
        for (const Actor second : ACTORS) {
            if (second < first) {
                continue;
            }
            combinations.push_back({first, second});
            for (const Actor third : ACTORS) {
                if (third >= second) {
                    combinations.push_back({first, second, third});
                }
            }
        }
    }
    return combinations;
}

/**
 * Threads that act concurrently on one object, round after round: those that release own one reference each,
 * and a newcomer obtains its own by `LookUp` and releases it by its destructor.
 */
template <class LookUp>
class Actors
{
public:
    Actors(const std::vector<Actor>& actors, LookUp look_up) : roles(actors), lookUp(look_up)
    {
        for (const Actor role : roles) {
            threads.emplace_back([this, role] { run(role); });
        }
    }
    Actors(const Actors&) = delete;
    Actors& operator=(const Actors&) = delete;
    ~Actors()
    {
        round = -1;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void act()
    {
        {
            const auto reference = lookUp();
            object = reference.get();
            for (const Actor role : roles) {
                if (role != Actor::NEWCOMER) {
                    object->acquireRef();
                }
            }
        }
        missing = static_cast<int>(roles.size());
        ++round;
        while (missing != 0) {
            std::this_thread::yield();
        }
    }

private:
    typedef decltype(std::declval<LookUp>()().get()) Object;

    void run(Actor role)
    {
        for (int last = 0;;) {
            const int now = round;
            if (now < 0) {
                return;
            }
            if (now == last) {
                std::this_thread::yield();
                continue;
            }
            last = now;
            switch (role) {
            case Actor::THROWING_RELEASE:
                object->releaseRef();
                break;
            case Actor::NON_THROWING_RELEASE:
                object->releaseRef(std::nothrow);
                break;
            default:
                EXPECT_FALSE(!lookUp());
            }
            --missing;
        }
    }

    const std::vector<Actor> roles;
    const LookUp lookUp;
    /** Written before the round begins. */
    Object object = nullptr;
    /** Number of threads that have not acted in this round. */
    std::atomic<int> missing{0};
    /** The current round; a negative value ends the threads. */
    std::atomic<int> round{0};
    std::vector<std::thread> threads;
};

template <class LookUp>
void expectNothingLingers(LookUp lookUp)
{
    const DynLoaderMgrRef manager = DynLoaderMgr::manager();
    for (const std::vector<Actor>& roles : allCombinations()) {
        String names;
        for (const Actor role : roles) {
            names += nameOf(role);
        }
        Actors<LookUp> actors(roles, lookUp);
        for (int i = 0; i < rounds() / 40; ++i) {
            actors.act();
            // The manager's own reference and that of this test; each library would add one.
            ASSERT_EQ(2u, manager->refCount(true)) << "a library lingers in round " << i << " of" << names;
        }
    }
    EXPECT_FALSE(isMapped(OTHER));
}

TEST(DynThreads, LibraryIsUnloadedWhateverReleasesAndLookupsInterleave)
{
    expectNothingLingers([] { return DynLibrary::load(OTHER); });
}

TEST(DynThreads, SymbolIsDestroyedWhateverReleasesAndLookupsInterleave)
{
    expectNothingLingers([] { return DynLibrary::load(OTHER)->symbol("dyn_other_value"); });
}

TEST(DynThreads, LoadUnderTwoNames)
{
    onThreads([](int number) {
        const String name = number % 2 == 0 ? OTHER : "/." + OTHER;
        for (int i = 0; i < rounds() / 4; ++i) {
            const DynSymbolRef symbol = DynLibrary::load(name)->symbol("dyn_other_value");
            EXPECT_EQ(5, valueOf(symbol));
            EXPECT_EQ(name, symbol->library()->name());
        }
    });
    EXPECT_FALSE(isMapped(OTHER));
}

TEST(DynThreads, ConcurrentFirstCallsReturnOneManager)
{
    std::vector<DynLoaderMgrRef> found(THREADS);
    onThreads([&found](int number) { found[static_cast<std::size_t>(number)] = DynLoaderMgr::manager(); });
    for (const DynLoaderMgrRef& manager : found) {
        EXPECT_EQ(found.front(), manager);
    }
    EXPECT_EQ(THREADS + 1u, found.front()->refCount(true));
}

}

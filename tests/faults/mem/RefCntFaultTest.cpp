#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "mem/Counted.hpp"

#include <dalnim/mem/MemOps.hpp>
#include <dalnim/mem/ObjectHolder.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace faults;
using com::kor::dal::nim::mem::ObjectHolder;
using com::kor::dal::nim::sys::system_error;
using memtest::Counted;
using memtest::RcoRef;

typedef RcoRef<Counted> CountedRef;

TEST(RefCntFault, CountingAllocatesNothing)
{
    int destroyed = 0;
    CountedRef object(new Counted(&destroyed));
    onNewThread([&] {
        const Fault fault(Call::NEW, ENOMEM);
        {
            const CountedRef copy(object);
            CountedRef other;
            other = copy;
            const ObjectHolder holder(other.get(), ObjectHolder::SM_ACQUIRE_AND_DEREF);
            const ObjectHolder second(holder);
        }
        object.clear();
        EXPECT_EQ(0u, fault.calls());
    });
    EXPECT_EQ(1, destroyed);
}

TEST(RefCntFault, ExcessReleaseThrowsOrRunsOutOfMemory)
{
    EXPECT_GE(walkAllocations([] { return std::make_unique<Counted>(); },
                              [](std::unique_ptr<Counted>& object) {
                                  try {
                                      object->releaseRef();
                                  } catch (const system_error& error) {
                                      object->value = error.error() == -1 ? 1 : 2;
                                  }
                              },
                              [](std::unique_ptr<Counted>& object, bool done) {
                                  EXPECT_EQ(done ? 1 : 0, object->value);
                              }),
              3u);
}

TEST(RefCntFault, BiasIsSetOrThrows)
{
    struct Subject
    {
        Subject() : object(new Counted), second(object) {}
        CountedRef object;
        CountedRef second;
    };
    typedef std::unique_ptr<Subject> SubjectRef;
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](SubjectRef& subject) { subject->object->refBias(1); },
                              [](SubjectRef& subject, bool done) {
                                  EXPECT_EQ(done ? 1u : 0u, subject->object->refBias());
                                  if (done) {
                                      // Held aside, a reference does not keep the object.
                                      subject->object->refBias(0);
                                  }
                              }),
              1u);
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](SubjectRef& subject) {
                                  if (subject->object->refBias() == 0) {
                                      subject->object->incBias();
                                  }
                              },
                              [](SubjectRef& subject, bool done) {
                                  EXPECT_EQ(done ? 1u : 0u, subject->object->refBias());
                                  if (done) {
                                      // Held aside, a reference does not keep the object.
                                      subject->object->refBias(0);
                                  }
                              }),
              1u);
}

TEST(RefCntFault, EmptyReferenceThrowsOrRunsOutOfMemory)
{
    EXPECT_GE(walkAllocations([] { return String(); },
                              [](String& found) {
                                  const CountedRef empty;
                                  try {
                                      empty->refCount(true);
                                  } catch (const system_error& error) {
                                      found = error.what();
                                  }
                              },
                              [](String& found, bool done) {
                                  EXPECT_EQ(done ? "Attempt to dereference null reference." : "", found);
                              }),
              1u);
}

}

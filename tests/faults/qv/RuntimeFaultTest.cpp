// The runtime layer when memory runs out or system calls fail.

#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "support/Files.hpp"

#include <qv/pmx/glob.h>
#include <qv/pmx/library.h>
#include <qv/pmx/rwlock.h>
#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_FilespecIterator.hpp>
#include <qv/rtlapi/RX_HashSet_U.hpp>
#include <qv/rtlapi/RX_String.hpp>
#include <qv/rtlapi/RX_Vector_U.hpp>
#include <qv/rtlapi/RX_Wildcard.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace faults;

RX_String text(const std::string& bytes)
{
    return RX_String(bytes.data(), bytes.size());
}

std::string bytesOf(const RX_String& string)
{
    return std::string(string.data(), string.length());
}

const std::string LONG(300, 'x');

TEST(RuntimeFault, StringIsConstructedOrThrows)
{
    EXPECT_GE(walkAllocations([] { return RX_String(); }, [](RX_String& made) { made = LONG.c_str(); },
                              [](RX_String& made, bool done) { EXPECT_EQ(done ? LONG : "", bytesOf(made)); }),
              1u);
    EXPECT_GE(walkAllocations(
                  [] { return text("abc"); }, [](RX_String& made) { made += text(LONG); },
                  [](RX_String& made, bool done) { EXPECT_EQ(done ? "abc" + LONG : "abc", bytesOf(made)); }),
              2u);
}

TEST(RuntimeFault, ExceptionIsCopiedOrThrows)
{
    RX_ExError error(22, text("first"), text(LONG));
    error.chain(13, text("second"), text(LONG));
    const std::string whole = bytesOf(error.asString(0));
    EXPECT_GE(walkAllocations([] { return std::unique_ptr<RX_Exception>(); },
                              [&](std::unique_ptr<RX_Exception>& copy) { copy.reset(error.clone()); },
                              [&](std::unique_ptr<RX_Exception>& copy, bool done) {
                                  ASSERT_EQ(done, copy != nullptr);
                                  if (done) {
                                      EXPECT_EQ(whole, bytesOf(copy->asString(0)));
                                  }
                              }),
              2u);
    EXPECT_GE(
        walkAllocations([] { return RX_String(); }, [&](RX_String& result) { result = error.asString(0); },
                        [&](RX_String& result, bool done) { EXPECT_EQ(done ? whole : "", bytesOf(result)); }),
        2u);
    EXPECT_GE(walkAllocations([] { return 0; },
                              [&](int& code) {
                                  try {
                                      error.throwThis();
                                  } catch (const RX_ExError& thrown) {
                                      code = thrown.getCode();
                                  }
                              },
                              [](int code, bool done) { EXPECT_EQ(done ? 22 : 0, code); }),
              1u);
}

TEST(RuntimeFault, MessageIsChainedOrThrows)
{
    const std::string alone = bytesOf(RX_ExError(22, text("first")).asString(0));
    EXPECT_GE(walkAllocations([] { return std::make_unique<RX_ExError>(22, text("first")); },
                              [](std::unique_ptr<RX_ExError>& error) { error->chain(13, text("second")); },
                              [&](std::unique_ptr<RX_ExError>& error, bool done) {
                                  EXPECT_EQ(alone + (done ? "\nPermission denied: second" : ""),
                                            bytesOf(error->asString(0)));
                              }),
              2u);
}

TEST(RuntimeFault, CollectionsChangeOrThrow)
{
    typedef RX_Vector_U<RX_String> Vector;
    EXPECT_GE(walkAllocations(
                  [] {
                      auto vector = std::make_unique<Vector>();
                      vector->addhi(text("a"));
                      return vector;
                  },
                  [](std::unique_ptr<Vector>& vector) { vector->addhi(text(LONG)); },
                  [](std::unique_ptr<Vector>& vector, bool done) {
                      ASSERT_EQ(done ? 2u : 1u, vector->size());
                      EXPECT_EQ("a", bytesOf((*vector)[0]));
                      EXPECT_EQ(done ? LONG : "a", bytesOf((*vector)[vector->size() - 1]));
                  }),
              2u);
    typedef RX_HashSet_U<RX_String> Set;
    EXPECT_GE(walkAllocations(
                  [] {
                      auto set = std::make_unique<Set>();
                      for (int i = 0; i < 100; ++i) {
                          set->add(text(std::to_string(i)));
                      }
                      return set;
                  },
                  [](std::unique_ptr<Set>& set) {
                      for (int i = 100; i < 250; ++i) {
                          set->add(text(std::to_string(i)));
                      }
                  },
                  [](std::unique_ptr<Set>& set, bool done) {
                      const std::size_t size = set->size();
                      EXPECT_TRUE(done ? size == 250 : size >= 100 && size < 250) << size;
                      for (std::size_t i = 0; i < size; ++i) {
                          EXPECT_TRUE(set->contains(text(std::to_string(i)))) << i;
                      }
                  }),
              150u);
}

TEST(RuntimeFault, PatternIsCompiledOrThrows)
{
    typedef std::unique_ptr<RX_Wildcard> Pattern;
    EXPECT_GE(walkAllocations(
                  [] { return Pattern(); },
                  [](Pattern& made) { made.reset(new RX_Wildcard(text("log.<->"), RX_Wildcard::WILD)); },
                  [](Pattern& made, bool done) {
                      ASSERT_EQ(done, made != nullptr);
                      EXPECT_TRUE(!done || made->matches("log.17"));
                  }),
              2u);
}

class FilesFault : public testing::Test
{
protected:
    FilesFault()
    {
        for (const char* const name : {"log.0", "log.1", "log.2"}) {
            support::writeFile(folder.file(name), "");
        }
    }

    RX_Filespec spec() const
    {
        return RX_Filespec(text(folder.file("log.<->")), RX_Filespec::DONTCARE, 1);
    }

    static std::vector<std::string> namesOf(RX_FilespecIterator& files)
    {
        std::vector<std::string> names;
        while (files.next() != 0) {
            names.push_back(bytesOf(files.filespec()));
        }
        return names;
    }

    support::ScratchFolder folder;
};

TEST_F(FilesFault, FilesAreListedOrMemoryRunsOut)
{
    const std::vector<std::string> all = {"log.0", "log.1", "log.2"};
    EXPECT_GE(walkAllocations([] { return std::vector<std::string>(); },
                              [this](std::vector<std::string>& names) {
                                  RX_FilespecIterator files(spec(), 0);
                                  namesOf(files).swap(names);
                              },
                              [&](std::vector<std::string>& names, bool done) {
                                  EXPECT_EQ(done ? all : std::vector<std::string>(), names);
                              }),
              10u);
}

TEST_F(FilesFault, DirectoryThatCannotBeReadReturnsTheEntriesSoFar)
{
    for (const int error : {EACCES, EMFILE, EIO}) {
        Fault fault(Call::OPENDIR, error);
        RX_FilespecIterator files(spec(), 0);
        fault.disarm();
        EXPECT_EQ(error, files.status());
        EXPECT_EQ(0u, namesOf(files).size());
    }
    {
        // "." and ".." may be read at any position.
        Fault fault(Call::READDIR, EIO, 6);
        RX_FilespecIterator files(spec(), 0);
        fault.disarm();
        EXPECT_EQ(EIO, files.status());
        EXPECT_EQ(3u, namesOf(files).size());
    }
    for (const Call call : {Call::OPENDIR, Call::READDIR}) {
        Fault fault(call, ENOMEM);
        EXPECT_EQ("no memory", failureUnder(fault, [this] { RX_FilespecIterator files(spec(), 0); }));
    }
}

TEST_F(FilesFault, PlainFunctionsReturnAnErrorNumber)
{
    for (unsigned int n = 1; n < 100; ++n) {
        qv_glob_t glob = {};
        Fault fault(Call::NEW, ENOMEM, n, 1);
        const qv_err_t status = qv_si_fileio_glob_construct(&glob, folder.path().c_str(), "log.<->");
        fault.disarm();
        EXPECT_EQ(fault.failed() == 0 ? 0 : ENOMEM, status);
        EXPECT_EQ(fault.failed() == 0, qv_si_fileio_glob_next(&glob) != nullptr);
        qv_si_fileio_glob_destruct(&glob);
        if (fault.failed() == 0) {
            break;
        }
    }
    for (unsigned int n = 1; n < 100; ++n) {
        qv_module_list_t list = nullptr;
        Fault fault(Call::NEW, ENOMEM, n, 1);
        const qv_err_t status = qv_si_module_create_list(&list);
        fault.disarm();
        EXPECT_EQ(fault.failed() == 0 ? 0 : ENOMEM, status);
        EXPECT_EQ(fault.failed() == 0, list != nullptr);
        qv_si_module_destroy_list(list);
        if (fault.failed() == 0) {
            break;
        }
    }
    si_rwlock_t lock = qv_si_rwlock_empty_lock_extern;
    Fault fault(Call::NEW, ENOMEM);
    const qv_err_t status = qv_si_rw_init(&lock, nullptr);
    fault.disarm();
    EXPECT_EQ(ENOMEM, status);
    EXPECT_EQ(EINVAL, qv_si_rw_rdlock(&lock));
    EXPECT_EQ(0, qv_si_rw_init(&lock, nullptr));
    EXPECT_EQ(0, qv_si_rw_destroy(&lock));
}

}

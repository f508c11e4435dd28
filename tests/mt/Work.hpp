#ifndef TESTS_MT_WORK_HPP
#define TESTS_MT_WORK_HPP

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace mttest {

namespace nim = com::kor::dal::nim;

typedef std::function<void()> Call;

/** A runnable that calls a function, and counts its destruction. */
class Work : public nim::mt::Runnable
{
public:
    explicit Work(Call workCall = nullptr, std::atomic<int>* destroyedWork = nullptr)
        : call(std::move(workCall)), destroyed(destroyedWork)
    {
    }
    ~Work() override
    {
        if (destroyed != nullptr) {
            ++*destroyed;
        }
    }

    void run() override
    {
        if (call) {
            call();
        }
    }

private:
    Call call;
    std::atomic<int>* destroyed;
};

/** A task that is its own target and calls a function. */
class OwnTask : public nim::mt::Task
{
public:
    explicit OwnTask(Call taskCall = nullptr, std::atomic<int>* destroyedTask = nullptr)
        : Task(nullptr, nullptr), call(std::move(taskCall)), destroyed(destroyedTask)
    {
    }
    ~OwnTask() override
    {
        if (destroyed != nullptr) {
            ++*destroyed;
        }
    }

    void run() override
    {
        if (call) {
            call();
        }
    }

private:
    Call call;
    std::atomic<int>* destroyed;
};

/** A thread that is its own target and calls a function. */
class OwnThread : public nim::mt::Thread
{
public:
    explicit OwnThread(Call threadCall, bool joinable = true) : Thread(joinable), call(std::move(threadCall))
    {
    }
    OwnThread(const char* name, const char* label) : Thread(true, name, label) {}

    void run() override
    {
        call();
    }

private:
    Call call;
};

inline void awaitEnd(const nim::mt::Task& task)
{
    while (task.status() != nim::mt::Task::TSF_FINISHED) {
        std::this_thread::yield();
    }
}

/** Returns the message of the std::logic_error that `call` throws, or "nothing". */
template <class Refused>
std::string refusal(Refused call)
{
    try {
        call();
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "nothing";
}

/** An entry of a context that records how it was created. */
class Content : public nim::mem::RefCntObject, public nim::type::Cloneable
{
public:
    enum Origin { ORIGINAL, SHALLOW, DEEP };

    explicit Content(int contentValue, Origin contentOrigin = ORIGINAL)
        : value(contentValue), origin(contentOrigin)
    {
    }

    ~Content() noexcept override = default;

    nim::type::Cloneable* clone(bool deep) const override
    {
        if (value < 0) {
            throw std::runtime_error("must not be cloned");
        }
        return new Content(value, deep ? DEEP : SHALLOW);
    }

    int value;
    const Origin origin;
};

/** One key for each attribute, and their entries in the current context. */
class Keys
{
public:
    nim::mem::RefCntObjectRef insert(unsigned int key, int value) const
    {
        const nim::mem::RefCntObjectRef ref(new Content(value));
        nim::type::ContainerContext::current()->add(ref, key);
        return ref;
    }
    void insertAll(int value) const
    {
        for (const unsigned int key : {left, shared, shallow, deep}) {
            insert(key, value);
        }
    }
    void removeAll() const
    {
        for (const unsigned int key : {left, shared, shallow, deep}) {
            nim::type::ContainerContext::current()->remove(key);
        }
    }

    /** Returns the entry under a key in the current context, or null. */
    static const Content* find(unsigned int key)
    {
        const nim::type::ContainerContextRef context = nim::type::ContainerContext::current();
        const nim::type::ContainerContext& content = *context;
        return dynamic_cast<const Content*>(content.find(key).get());
    }
    bool noneFound() const
    {
        return find(left) == nullptr && find(shared) == nullptr && find(shallow) == nullptr
               && find(deep) == nullptr;
    }

    const unsigned int left = nim::type::Context::allocateKey(0);
    const unsigned int shared = nim::type::Context::allocateKey(1);
    const unsigned int shallow = nim::type::Context::allocateKey(2);
    const unsigned int deep = nim::type::Context::allocateKey(4);
};

/** The entries that a thread or a task has found in its context. */
struct Found
{
    /** Reads the context of the calling thread. */
    void read(const Keys& keys)
    {
        left = Keys::find(keys.left);
        shared = Keys::find(keys.shared);
        keep(shallow, keys.shallow);
        keep(deep, keys.deep);
    }

    const Content* left = nullptr;
    const Content* shared = nullptr;
    nim::mem::RcoRef<Content> shallow;
    nim::mem::RcoRef<Content> deep;

private:
    static void keep(nim::mem::RcoRef<Content>& ref, unsigned int key)
    {
        ref = const_cast<Content*>(Keys::find(key));
    }
};

}

#endif

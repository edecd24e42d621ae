#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kovcert/qxci/dbqxci.h"

namespace {

/// An owner that many threads use. It puts no order between them, which would hide their races, and
/// frees at its end what nobody has given back.
class SharedOwner {
  public:
    ~SharedOwner() {
        for (void* const memory : _memory) std::free(memory);
    }
    const a_qxci_callbacks* callbacks() const { return &_callbacks; }

    /// Allocations that were not given back.
    size_t live() const {
        return _memory.size() -
               static_cast<size_t>(std::count(_memory.begin(), _memory.end(), nullptr));
    }

  private:
    static constexpr size_t header = 16;  // holds the place in _memory and keeps the alignment

    static void* alloc(void* context, size_t size) {
        SharedOwner& owner = *static_cast<SharedOwner*>(context);
        const size_t place = owner._allocations.fetch_add(1, std::memory_order_relaxed);
        char* const memory = static_cast<char*>(std::malloc(header + size));
        std::memcpy(memory, &place, sizeof place);
        owner._memory.at(place) = memory;
        return memory + header;
    }
    static void free(void* context, void* memory) {
        if (memory == nullptr) return;
        char* const start = static_cast<char*>(memory) - header;
        size_t place;
        std::memcpy(&place, start, sizeof place);
        static_cast<SharedOwner*>(context)->_memory[place] = nullptr;
        std::free(start);
    }
    static void* create_mutex(void*) { return new (std::nothrow) std::mutex; }
    static void destroy_mutex(void*, void* mutex) { delete static_cast<std::mutex*>(mutex); }

    std::atomic<size_t> _allocations = 0;
    std::vector<void*> _memory = std::vector<void*>(2000);  // null: given back, or not yet used
    const a_qxci_callbacks _callbacks = {
        .alloc_cb = alloc,
        .realloc_cb = [](void*, void* memory, size_t size) { return std::realloc(memory, size); },
        .free_cb = free,
        .log_cb = nullptr,
        .threadid_cb = nullptr,
        .mutex_create_cb = create_mutex,
        .mutex_destroy_cb = destroy_mutex,
        .mutex_get_cb = [](void*, void* mutex) { static_cast<std::mutex*>(mutex)->lock(); },
        .mutex_give_cb = [](void*, void* mutex) { static_cast<std::mutex*>(mutex)->unlock(); },
        .create_thread_cb = nullptr,
    };
};

/// Threads that run what they are given, until the end.
class Workers {
  public:
    Workers() {
        for (int i = 0; i < 4; ++i) _threads.emplace_back([this] { work(); });
    }
    ~Workers() { finish(); }

    void run(std::function<void()> task) {
        const std::lock_guard lock(_mutex);
        _tasks.push_back(std::move(task));
        _changed.notify_one();
    }
    void finish() {
        {
            const std::lock_guard lock(_mutex);
            _ending = true;
            _changed.notify_all();
        }
        for (std::thread& thread : _threads) thread.join();
        _threads.clear();
    }

  private:
    void work() {
        std::unique_lock lock(_mutex);
        while (true) {
            _changed.wait(lock, [this] { return _ending || !_tasks.empty(); });
            if (_tasks.empty()) return;
            const std::function<void()> task = std::move(_tasks.front());
            _tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<std::function<void()>> _tasks;
    bool _ending = false;
    std::vector<std::thread> _threads;
};

template <class Object>
void use_and_delete_elsewhere(Workers& workers, Object* object) {
    ASSERT_NE(object, nullptr);
    workers.run([object] {
        object->GetAlgorithmID();
        object->GetLastError();
        delete object;
    });
}

TEST(References, wrappers_are_deleted_on_any_thread_while_others_are_made) {
    const a_qxci_byte key[16] = {};
    for (const bool from_stub : {false, true}) {
        SharedOwner owner;
        DBQXCIError error;
        gUseStub = from_stub;
        DBQXCIEnvironment env(owner.callbacks(), &owner);
        ASSERT_EQ(env.Init(false, "test", nullptr, &error), QXCI_OK);
        Workers workers;
        for (int round = 0; round < 200; ++round) {
            use_and_delete_elsewhere(workers, env.CreateBlockHasher("SHA256", &error));
            use_and_delete_elsewhere(workers,
                                     env.CreateBlockEncrypter("AES", key, 16, nullptr, &error));
            use_and_delete_elsewhere(workers, env.CreatePasswordHasher(&error));
            if (!from_stub) continue;
            use_and_delete_elsewhere(workers, env.CreateStream(nullptr, nullptr, "rsa", &error));
        }
        workers.finish();
        const c_utils_ref<DBQXCIInterface> iface(
            env._getInterface(from_stub ? OTHER_IFACE : STATIC_IFACE));
        EXPECT_EQ(iface->RefCount(), 2u) << "the environment's and this one";
        env.Fini();
        EXPECT_EQ(owner.live(), 0u);
        gUseStub = false;
    }
}

/// Makes objects of all kinds and leaves their deletion to the workers.
void scatter(DBQXCIEnvironment& env, bool from_stub, Workers& workers) {
    const a_qxci_byte key[16] = {};
    DBQXCIError error;
    const auto leave = [&workers](auto* object) { workers.run([object] { delete object; }); };
    for (int i = 0; i < 4; ++i) {
        leave(env.CreateBlockHasher("SHA256", &error));
        leave(env.CreateBlockEncrypter("AES", key, 16, nullptr, &error));
        leave(env.CreatePasswordHasher(&error));
        if (from_stub) leave(env.CreateStream(nullptr, nullptr, "rsa", &error));
    }
}

TEST(References, wrappers_are_deleted_on_any_thread_while_the_environment_finishes) {
    for (int round = 0; round < 100; ++round) {
        const bool from_stub = round % 2 != 0;
        SharedOwner owner;
        DBQXCIError error;
        gUseStub = from_stub;
        DBQXCIEnvironment env(owner.callbacks(), &owner);
        ASSERT_EQ(env.Init(false, "test", nullptr, &error), QXCI_OK);
        Workers workers;
        scatter(env, from_stub, workers);
        DBQXCIInterface* const iface = env._getInterface(from_stub ? OTHER_IFACE : STATIC_IFACE);
        ASSERT_NE(iface, nullptr);
        env.Fini();
        workers.finish();
        EXPECT_FALSE(iface->IsLoaded());
        const uint32 late = iface->RefCount() - 1;
        EXPECT_EQ(owner.live(), late) << "kept: who comes too late leaves all where it is";
        for (uint32 i = 0; i <= late; ++i) iface->Release();
        gUseStub = false;
    }
}

}  // namespace

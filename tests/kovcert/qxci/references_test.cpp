#include "kovcert/qxci/dbqxci.h"

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

namespace {

/// An owner that many threads use; everything must be back at the end.
class SharedOwner {
  public:
    ~SharedOwner() { EXPECT_EQ(_live, 0); }
    const a_qxci_callbacks* callbacks() const { return &_callbacks; }

  private:
    static std::atomic<int>& live(void* context) {
        return static_cast<SharedOwner*>(context)->_live;
    }
    static void* alloc(void* context, size_t size) {
        live(context)++;
        return std::malloc(size);
    }
    static void free(void* context, void* memory) {
        if (memory != nullptr) live(context)--;
        std::free(memory);
    }
    static void* create_mutex(void* context) {
        live(context)++;
        return new (std::nothrow) std::mutex;
    }
    static void destroy_mutex(void* context, void* mutex) {
        live(context)--;
        delete static_cast<std::mutex*>(mutex);
    }

    std::atomic<int> _live = 0;
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
        for (int i = 0; i < 4; i++) _threads.emplace_back([this] { work(); });
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
        for (int round = 0; round < 200; round++) {
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
        gUseStub = false;
    }
}

TEST(References, the_last_one_goes_on_any_thread_while_the_environment_finishes) {
    Workers workers;
    for (int round = 0; round < 200; round++) {
        SharedOwner owner;
        DBQXCIError error;
        DBQXCIEnvironment env(owner.callbacks(), &owner);
        ASSERT_EQ(env.Init(false, "test", nullptr, &error), QXCI_OK);
        ASSERT_TRUE(env._loadInterface(OTHER_IFACE, &error));
        for (const _iface_index index : {STATIC_IFACE, OTHER_IFACE, OTHER_IFACE, RSA_IFACE}) {
            DBQXCIInterface* const iface = env._getInterface(index);
            workers.run([iface] { iface->Release(); });
        }
        env.Fini();
        EXPECT_EQ(env._getInterface(OTHER_IFACE), nullptr);
    }
}

}  // namespace

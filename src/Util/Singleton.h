#pragma once
#include <pthread.h>

// What Release does to a process-wide singleton.
enum SINGLETONLIFETIME {
    // The object is never freed: other threads may still hold the pointer they got a
    // moment ago. Release calls T::ResetInPlace(), which stops what the object runs and
    // puts it back to its freshly constructed state.
    SINGLETONLIFETIME_RESETINPLACE = 0,
    // The object is freed and the next GetInstance makes a new one. Only for
    // infrastructure that cannot be put back while in use (see its class).
    SINGLETONLIFETIME_DESTROY = 1
};

// GetInstance()/Release() for class T, which derives from CSingleton<T> and makes it a
// friend. A T with a Resume() has it called by every GetInstance, to start again what a
// reset stopped; it must be cheap when there is nothing to start.
template <class T, SINGLETONLIFETIME Lifetime = SINGLETONLIFETIME_RESETINPLACE>
class CSingleton {
public:
    static T* GetInstance() {
        T* instance;
        {
            // A plain mutex: the critical-section manager is itself created here.
            Lock lock;
            if (s_instance == nullptr) s_instance = new T();
            instance = s_instance;
        }
        Resume(instance, 0);
        return instance;
    }

    // A no-op when the instance was never created.
    static void Release() {
        T* instance;
        {
            Lock lock;
            instance = s_instance;
            if (Lifetime == SINGLETONLIFETIME_DESTROY) s_instance = nullptr;
        }
        if (instance == nullptr) return;
        if constexpr (Lifetime == SINGLETONLIFETIME_DESTROY) {
            delete instance;
        } else {
            instance->ResetInPlace();
        }
    }

protected:
    CSingleton() = default;
    ~CSingleton() = default;

private:
    struct Lock {
        Lock() { pthread_mutex_lock(&s_mutex); }
        ~Lock() { pthread_mutex_unlock(&s_mutex); }
    };
    template <class U>
    static auto Resume(U* instance, int) -> decltype(instance->Resume(), void()) {
        instance->Resume();
    }
    template <class U>
    static void Resume(U*, long) {}

    static inline T* s_instance = nullptr;
    static inline pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
};

// PtrRef<T>: the library's shared-ownership handle. The count lives in a separately
// allocated plain int shared by every handle to the object; it is neither atomic nor locked,
// so a handle and its copies must be made, copied and released by one thread at a time (or
// under a lock the user holds).
#ifndef OVBASE_THREAD_PTRREF_H
#define OVBASE_THREAD_PTRREF_H

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

template <class T> class PtrRef {
public:
    constexpr PtrRef() : mpObj(nullptr), mpCount(nullptr) {}

    // Takes ownership of OBJ; a count of 1 is allocated when it is not null.
    PtrRef(T* obj) : mpObj(obj), mpCount(obj ? new int(1) : nullptr) {}

    PtrRef(const PtrRef& other) : mpObj(nullptr), mpCount(nullptr) {
        assign(other.mpObj, other.mpCount);
    }

    // Shares OTHER's object and count when U* converts to T*.
    template <class U, class = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    PtrRef(const PtrRef<U>& other) : mpObj(nullptr), mpCount(nullptr) {
        assign(other.mpObj, other.mpCount);
    }

    // Moving hands the reference over without touching the count, so a handle can pass to
    // another thread's structures (under their lock) without a count change left behind.
    PtrRef(PtrRef&& other) noexcept : mpObj(other.mpObj), mpCount(other.mpCount) {
        other.mpObj = nullptr;
        other.mpCount = nullptr;
    }

    PtrRef& operator=(const PtrRef& other) {
        assign(other.mpObj, other.mpCount);
        return *this;
    }

    PtrRef& operator=(PtrRef&& other) {
        if (other.mpObj == mpObj)
            return *this;
        release();
        mpObj = other.mpObj;
        mpCount = other.mpCount;
        other.mpObj = nullptr;
        other.mpCount = nullptr;
        return *this;
    }

    template <class U, class = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    PtrRef& operator=(const PtrRef<U>& other) {
        assign(other.mpObj, other.mpCount);
        return *this;
    }

    virtual ~PtrRef() { release(); }

    T* operator->() const { return mpObj; }
    T& operator*() const { return *mpObj; }
    T* get() const { return mpObj; }
    explicit operator bool() const { return mpObj != nullptr; }
    bool operator==(const PtrRef& other) const { return mpObj == other.mpObj; }
    bool operator!=(const PtrRef& other) const { return mpObj != other.mpObj; }
    bool operator==(std::nullptr_t) const { return mpObj == nullptr; }
    bool operator!=(std::nullptr_t) const { return mpObj != nullptr; }

    // The shared count (0 when the handle has none), and whether a count was allocated.
    int refCount() const { return mpCount ? *mpCount : 0; }
    bool hasCount() const { return mpCount != nullptr; }

private:
    template <class U> friend class PtrRef;

    // The equality test is made on the object pointer: two handles to one object never
    // reassign, even when they were made separately and hold different counts.
    void assign(T* obj, int* count) {
        if (obj == mpObj)
            return;
        release();
        mpObj = obj;
        mpCount = count;
        if (mpObj && !mpCount)
            mpCount = new int(0);
        if (mpCount)
            ++*mpCount;
    }

    void release() {
        if (mpCount && mpObj && --*mpCount == 0)
            destroyLast(mpObj, mpCount);
        mpObj = nullptr;
        mpCount = nullptr;
    }

    // Out of line: inlined into a loop of copies, GCC cannot see that the count never reaches
    // 0 there and warns of a use after free that cannot happen.
    __attribute__((noinline)) static void destroyLast(T* obj, int* count) {
        destroy(obj);
        delete count;
    }

    // A polymorphic type without a virtual destructor (IHandler) runs only its own
    // destructor, as deleting through it would, and the whole object's storage is freed from
    // its start, wherever T sits inside it; everything else is deleted normally.
    static void destroy(T* obj) {
        if constexpr (std::is_polymorphic<T>::value && !std::has_virtual_destructor<T>::value) {
            void* storage = dynamic_cast<void*>(obj);
            obj->T::~T(); // T's own, not the object's
            ::operator delete(storage);
        } else {
            delete obj;
        }
    }

    T* mpObj;
    int* mpCount;
};

#endif

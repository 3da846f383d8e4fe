// IHandler: something a thread or a timer runs. Handler<T> runs a member function of an
// object.
#ifndef OVBASE_THREAD_HANDLER_H
#define OVBASE_THREAD_HANDLER_H

#include "types/FnLog.h"

#include <cstdint>
#include <cstring>

// No virtual destructor: a PtrRef<IHandler> frees a handler's storage without running any
// destructor, so handlers hold nothing that needs one.
class IHandler {
public:
    virtual void handle() = 0;
    virtual void destroy() {}
};

template <class T> class Handler : public IHandler {
public:
    typedef void (T::*Function)();

    Handler(T* obj, Function func) : mpObj(obj), mFunc(func) {}

    void handle() override {
        // No line feed: the next diagnostic continues this line.
        OV_LOG(4, "handle a function!");
        if (mpObj && mFunc) {
            (mpObj->*mFunc)();
            return;
        }
        OV_LOG(3, "Something is empty obj:%d, func:%d\n", pointerAsInt(mpObj),
               functionAsInt(mFunc));
    }

    // Later calls of handle() only report.
    void destroy() override {
        mpObj = nullptr;
        mFunc = nullptr;
    }

private:
    static int pointerAsInt(T* obj) {
        return static_cast<int>(reinterpret_cast<std::uintptr_t>(obj));
    }

    // A member-function pointer has no integer conversion; its first machine word (the
    // function's address, or its vtable offset plus one, and 0 when null) is printed,
    // truncated to int.
    static int functionAsInt(Function func) {
        std::uintptr_t word = 0;
        std::memcpy(&word, &func, sizeof(word) < sizeof(func) ? sizeof(word) : sizeof(func));
        return static_cast<int>(word);
    }

    T* mpObj;
    Function mFunc;
};

#endif

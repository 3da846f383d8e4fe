// NR_LRUQueue: the least-recently-used order of the files of one content class. A binary
// min-heap of elements (stored from index 1) keyed by a use counter, with a map from name to
// element. push() and touch() give an element the queue's next counter value, so the top is the
// least recently added or used element; setUnused() gives it key 0, which puts it on top
// before any used one. Counter values start at 1, so key 0 never means "used".
//
// Threads: one at a time (the engine's). Ownership: the queue owns its elements; a pointer from
// top() lives until that element is popped or removed.
#ifndef OVBASE_STORAGE_NR_LRUQUEUE_H
#define OVBASE_STORAGE_NR_LRUQUEUE_H

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

template <typename T> struct lru_element {
    int32_t key;   // 0, or the counter value of the last use
    int32_t index; // place in the heap, from 1
    T name;
};

template <typename T> class NR_LRUQueue {
public:
    typedef lru_element<T> Element;

    NR_LRUQueue() : mHeap(1, nullptr), mCounter(1) {}
    NR_LRUQueue(const NR_LRUQueue&) = delete;
    NR_LRUQueue& operator=(const NR_LRUQueue&) = delete;

    bool empty() const { return mHeap.size() == 1; }
    size_t size() const { return mHeap.size() - 1; }
    bool contains(const T& name) const { return mElements.count(name) != 0; }
    // The element with the smallest key, or null when the queue is empty.
    const Element* top() const { return empty() ? nullptr : mHeap[1]; }
    // The top, or when SKIP holds its name the element of smallest key among those SKIP does
    // not hold (of equal keys the one nearer the top of the heap); null when none is left.
    // Eviction passes over files it could not delete this way without changing the heap.
    const Element* topExcept(const std::set<T>& skip) const {
        if (empty() || !skip.count(mHeap[1]->name))
            return top();
        const Element* best = nullptr;
        for (size_t i = 2; i < mHeap.size(); ++i) {
            if (!skip.count(mHeap[i]->name) && (!best || mHeap[i]->key < best->key))
                best = mHeap[i];
        }
        return best;
    }
    // NAME's element, or null.
    const Element* find(const T& name) const {
        auto it = mElements.find(name);
        return it == mElements.end() ? nullptr : it->second.get();
    }
    // The elements in heap order (index 1 first), for dumps.
    std::vector<const Element*> elements() const {
        return std::vector<const Element*>(mHeap.begin() + 1, mHeap.end());
    }

    // Adds NAME as just used, or with key 0 when UNUSED; an element already there is only
    // given the new key.
    void push(const T& name, bool unused = false) {
        auto it = mElements.find(name);
        if (it == mElements.end()) {
            std::unique_ptr<Element> element(new Element{0, int32_t(mHeap.size()), name});
            mHeap.push_back(element.get());
            it = mElements.emplace(name, std::move(element)).first;
        }
        setKey(it->second.get(), unused ? 0 : nextKey());
    }
    // Marks NAME as just used; false when it is not in the queue.
    bool touch(const T& name) { return rekey(name, false); }
    // Gives NAME key 0; false when it is not in the queue.
    bool setUnused(const T& name) { return rekey(name, true); }

    // Removes the top element; nothing when empty.
    void pop() {
        if (!empty())
            erase(mHeap[1]);
    }
    // Removes NAME; false when it is not in the queue.
    bool remove(const T& name) {
        auto it = mElements.find(name);
        if (it == mElements.end())
            return false;
        erase(it->second.get());
        return true;
    }
    void clear() {
        mHeap.assign(1, nullptr);
        mElements.clear();
        mCounter = 1;
    }

private:
    bool rekey(const T& name, bool unused) {
        auto it = mElements.find(name);
        if (it == mElements.end())
            return false;
        setKey(it->second.get(), unused ? 0 : nextKey());
        return true;
    }

    int32_t nextKey() {
        if (mCounter == INT32_MAX)
            renumber();
        return mCounter++;
    }

    // Gives the used elements the keys 1, 2, ... in their order, so the counter can go on
    // after it reached its largest value. The heap order stays valid.
    void renumber() {
        std::vector<Element*> used;
        for (size_t i = 1; i < mHeap.size(); ++i) {
            if (mHeap[i]->key != 0)
                used.push_back(mHeap[i]);
        }
        std::sort(used.begin(), used.end(),
                  [](const Element* a, const Element* b) { return a->key < b->key; });
        mCounter = 1;
        for (Element* element : used)
            element->key = mCounter++;
    }

    void setKey(Element* element, int32_t key) {
        element->key = key;
        siftUp(size_t(element->index));
        siftDown(size_t(element->index));
    }

    void erase(Element* element) {
        size_t index = size_t(element->index);
        Element* last = mHeap.back();
        mHeap.pop_back();
        if (last != element) {
            mHeap[index] = last;
            last->index = int32_t(index);
            siftUp(index);
            siftDown(size_t(last->index));
        }
        mElements.erase(mElements.find(element->name)); // deletes ELEMENT
    }

    void place(size_t index, Element* element) {
        mHeap[index] = element;
        element->index = int32_t(index);
    }

    void siftUp(size_t index) {
        Element* element = mHeap[index];
        while (index > 1 && mHeap[index / 2]->key > element->key) {
            place(index, mHeap[index / 2]);
            index /= 2;
        }
        place(index, element);
    }

    // On equal keys the parent stays.
    void siftDown(size_t index) {
        Element* element = mHeap[index];
        size_t count = mHeap.size() - 1;
        for (;;) {
            size_t child = index * 2;
            if (child > count)
                break;
            if (child + 1 <= count && mHeap[child + 1]->key < mHeap[child]->key)
                ++child;
            if (mHeap[child]->key >= element->key)
                break;
            place(index, mHeap[child]);
            index = child;
        }
        place(index, element);
    }

    std::vector<Element*> mHeap; // index 0 unused
    std::map<T, std::unique_ptr<Element>> mElements;
    int32_t mCounter;
};

#endif

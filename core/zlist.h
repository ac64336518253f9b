#ifndef ZLIST_H
#define ZLIST_H

#include <initializer_list>
#include <type_traits>
#include <utility>

// Circular doubly linked list with a sentinel node, walked with ZIter
// positions:
//   for (ZIter it = list.first(); !list.isEnd(it); it = list.next(it))
//       use(list.nodeGet(it));
// A ZIter stays valid until its own node is deleted. Range-for works too.
struct ZListNodeBase {
    ZListNodeBase* next;
    ZListNodeBase* prev;
};
typedef ZListNodeBase* ZIter;

// Ends the program with "ZList over range"; indexing past the end is a bug
// in the caller, not a condition to recover from.
[[noreturn]] void zlistOverRange();

template <class T>
class ZList {
    struct Node : ZListNodeBase {
        template <class... A>
        explicit Node(A&&... a) : value(std::forward<A>(a)...) {}
        T value;
    };

public:
    ZList() : sentinel(nullptr), count(0) {}
    ZList(std::initializer_list<T> values) : ZList() {
        for (const T& v : values)
            append(v);
    }
    ZList(const ZList& o) : ZList() {
        for (const T& v : o)
            append(v);
    }
    ZList(ZList&& o) noexcept : sentinel(o.sentinel), count(o.count) {
        o.sentinel = nullptr;
        o.count = 0;
    }
    ~ZList() {
        clear();
        delete sentinel;
    }
    ZList& operator=(const ZList& o) {
        if (this != &o) {
            ZList t(o);
            swap(t);
        }
        return *this;
    }
    ZList& operator=(ZList&& o) noexcept {
        if (this != &o) {
            clear();
            swap(o);
        }
        return *this;
    }
    void swap(ZList& o) noexcept {
        std::swap(sentinel, o.sentinel);
        std::swap(count, o.count);
    }

    int number() const { return count; }
    int size() const { return count; }
    bool isEmpty() const { return count == 0; }

    ZIter first() const { return sentinel ? sentinel->next : nullptr; }
    ZIter last() const { return sentinel ? sentinel->prev : nullptr; }
    ZIter next(ZIter it) const { return it->next; }
    ZIter prev(ZIter it) const { return it->prev; }
    bool isEnd(ZIter it) const { return it == nullptr || it == sentinel; }

    T& nodeGet(ZIter it) { return static_cast<Node*>(it)->value; }
    const T& nodeGet(ZIter it) const { return static_cast<const Node*>(it)->value; }

    ZIter append(const T& value) { return link(new Node(value), sentinelNode()); }
    ZIter append(T&& value) { return link(new Node(std::move(value)), sentinelNode()); }
    ZIter prepend(const T& value) { return link(new Node(value), sentinelNode()->next); }
    // Inserts before the node at it; an end position appends.
    ZIter insert(ZIter it, const T& value) {
        return link(new Node(value), isEnd(it) ? sentinelNode() : it);
    }
    // Appends a default element and returns its position.
    ZIter nodeCreate() { return link(new Node(), sentinelNode()); }

    // Removes the node at it and returns the position after it.
    ZIter del(ZIter it) {
        if (isEnd(it))
            return it;
        ZIter n = it->next;
        it->prev->next = it->next;
        it->next->prev = it->prev;
        delete static_cast<Node*>(it);
        count--;
        return n;
    }
    void clear() {
        if (!sentinel)
            return;
        ZIter it = sentinel->next;
        while (it != sentinel) {
            ZIter n = it->next;
            delete static_cast<Node*>(it);
            it = n;
        }
        sentinel->next = sentinel->prev = sentinel;
        count = 0;
    }

    // Moves the node at it from the list `from` to the end of this one,
    // without copying or allocating the element.
    void spliceLast(ZList& from, ZIter it) {
        if (from.isEnd(it))
            return;
        it->prev->next = it->next;
        it->next->prev = it->prev;
        from.count--;
        ZIter s = sentinelNode();
        it->next = s;
        it->prev = s->prev;
        s->prev->next = it;
        s->prev = it;
        count++;
    }

    T& front() { return nodeGet(first()); }
    T& back() { return nodeGet(last()); }
    const T& front() const { return nodeGet(first()); }
    const T& back() const { return nodeGet(last()); }
    T takeFirst() {
        T v = std::move(front());
        del(first());
        return v;
    }

    T& operator[](int i) { return nodeGet(at(i)); }
    const T& operator[](int i) const { return nodeGet(at(i)); }

    // Stable merge sort by operator<.
    void sort() {
        sort([](const T& a, const T& b) { return a < b; });
    }
    template <class Less>
    void sort(Less less) {
        if (count < 2)
            return;
        // Unlink into a null-terminated singly linked chain, sort, relink.
        ZListNodeBase* head = sentinel->next;
        sentinel->prev->next = nullptr;
        head = mergeSort(head, count, less);
        ZListNodeBase* prev = sentinel;
        for (ZListNodeBase* n = head; n; n = n->next) {
            n->prev = prev;
            prev->next = n;
            prev = n;
        }
        prev->next = sentinel;
        sentinel->prev = prev;
    }

    template <class V, class N>
    class Iterator {
    public:
        Iterator(N n) : n(n) {}
        V& operator*() const {
            return static_cast<typename std::conditional<std::is_const<V>::value, const Node*,
                                                         Node*>::type>(n)
                ->value;
        }
        V* operator->() const { return &**this; }
        Iterator& operator++() {
            n = n->next;
            return *this;
        }
        bool operator!=(const Iterator& o) const { return n != o.n; }
        bool operator==(const Iterator& o) const { return n == o.n; }

    private:
        N n;
    };
    typedef Iterator<T, ZListNodeBase*> iterator;
    typedef Iterator<const T, const ZListNodeBase*> const_iterator;
    iterator begin() { return iterator(sentinel ? sentinel->next : nullptr); }
    iterator end() { return iterator(sentinel); }
    const_iterator begin() const { return const_iterator(sentinel ? sentinel->next : nullptr); }
    const_iterator end() const { return const_iterator(sentinel); }

private:
    ZIter sentinelNode() const {
        if (!sentinel) {
            sentinel = new ZListNodeBase;
            sentinel->next = sentinel->prev = sentinel;
        }
        return sentinel;
    }
    ZIter link(Node* node, ZIter before) {
        sentinelNode();
        node->next = before;
        node->prev = before->prev;
        before->prev->next = node;
        before->prev = node;
        count++;
        return node;
    }
    ZIter at(int i) const {
        if (i < 0 || i >= count)
            zlistOverRange();
        ZIter it;
        if (i < count / 2) {
            it = sentinel->next;
            while (i--)
                it = it->next;
        } else {
            it = sentinel->prev;
            for (int k = count - 1; k > i; k--)
                it = it->prev;
        }
        return it;
    }
    template <class Less>
    static ZListNodeBase* mergeSort(ZListNodeBase* head, int n, Less& less) {
        if (n < 2) {
            if (head)
                head->next = nullptr;
            return head;
        }
        int half = n / 2;
        ZListNodeBase* mid = head;
        for (int i = 0; i < half; i++)
            mid = mid->next;
        ZListNodeBase* a = mergeSort(head, half, less);
        ZListNodeBase* b = mergeSort(mid, n - half, less);
        ZListNodeBase dummy;
        ZListNodeBase* tail = &dummy;
        while (a && b) {
            if (less(static_cast<Node*>(b)->value, static_cast<Node*>(a)->value)) {
                tail->next = b;
                b = b->next;
            } else {
                tail->next = a;
                a = a->next;
            }
            tail = tail->next;
        }
        tail->next = a ? a : b;
        return dummy.next;
    }

    mutable ZListNodeBase* sentinel;
    int count;
};

#endif

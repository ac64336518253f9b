#ifndef ZDICT_H
#define ZDICT_H

#include "zlist.h"
#include "zstring.h"

#include <vector>

template <class T>
struct ZDictItem {
    ZString key;
    T value;
};

// Dictionary from ZString keys to T. The items live in a ZList in insertion
// order; a hash index of ZList<ZIter> buckets points into that list. The
// bucket count doubles (through a table of primes) whenever the items
// outnumber the buckets, so a lookup stays O(1) as the dictionary grows.
template <class T>
class ZDict {
public:
    typedef ZList<ZDictItem<T>> ItemList;

    ZDict() = default;
    ZDict(const ZDict& o) {
        for (const ZDictItem<T>& item : o.items)
            (*this)[item.key] = item.value;
    }
    ZDict(ZDict&&) noexcept = default;
    ZDict& operator=(const ZDict& o) {
        if (this != &o) {
            ZDict t(o);
            swap(t);
        }
        return *this;
    }
    ZDict& operator=(ZDict&& o) noexcept {
        swap(o);
        return *this;
    }
    void swap(ZDict& o) noexcept {
        items.swap(o.items);
        buckets.swap(o.buckets);
    }

    int number() const { return items.number(); }
    int size() const { return items.number(); }
    bool isEmpty() const { return items.isEmpty(); }

    // 1 and the item's position when the key is present, else 0.
    int hashFind(const ZString& key, ZIter& iter) const {
        if (buckets.empty())
            return 0;
        const ZList<ZIter>& bucket = buckets[key.hash() % buckets.size()];
        for (ZIter b = bucket.first(); !bucket.isEnd(b); b = bucket.next(b)) {
            ZIter it = bucket.nodeGet(b);
            if (items.nodeGet(it).key.compare(key) == 0) {
                iter = it;
                return 1;
            }
        }
        return 0;
    }
    bool contains(const ZString& key) const {
        ZIter it;
        return hashFind(key, it) != 0;
    }
    // The value of key, or def when it is absent.
    T value(const ZString& key, const T& def = T()) const {
        ZIter it;
        return hashFind(key, it) ? items.nodeGet(it).value : def;
    }

    // The existing value, or a new default one appended under key.
    T& operator[](const ZString& key) {
        uint32_t h = key.hash();
        if (!buckets.empty()) {
            const ZList<ZIter>& bucket = buckets[h % buckets.size()];
            for (ZIter b = bucket.first(); !bucket.isEnd(b); b = bucket.next(b)) {
                ZIter it = bucket.nodeGet(b);
                if (items.nodeGet(it).key.compare(key) == 0)
                    return items.nodeGet(it).value;
            }
        }
        if (items.number() >= int(buckets.size()))
            rehash(nextSize(buckets.size()));
        ZDictItem<T> item;
        item.key = key;
        ZIter it = items.append(std::move(item));
        buckets[h % buckets.size()].append(it);
        return items.nodeGet(it).value;
    }

    // Removes the item at iter and returns the position after it.
    ZIter del(ZIter iter) {
        if (items.isEnd(iter))
            return iter;
        ZList<ZIter>& bucket = buckets[items.nodeGet(iter).key.hash() % buckets.size()];
        for (ZIter b = bucket.first(); !bucket.isEnd(b); b = bucket.next(b)) {
            if (bucket.nodeGet(b) == iter) {
                bucket.del(b);
                break;
            }
        }
        return items.del(iter);
    }
    int del(const ZString& key) {
        ZIter it;
        if (!hashFind(key, it))
            return 0;
        del(it);
        return 1;
    }
    void clear() {
        items.clear();
        buckets.clear();
    }

    // Items in insertion order.
    ItemList& list() { return items; }
    const ItemList& list() const { return items; }
    ZIter first() const { return items.first(); }
    ZIter next(ZIter it) const { return items.next(it); }
    bool isEnd(ZIter it) const { return items.isEnd(it); }
    ZDictItem<T>& nodeGet(ZIter it) { return items.nodeGet(it); }
    const ZDictItem<T>& nodeGet(ZIter it) const { return items.nodeGet(it); }

    typename ItemList::iterator begin() { return items.begin(); }
    typename ItemList::iterator end() { return items.end(); }
    typename ItemList::const_iterator begin() const { return items.begin(); }
    typename ItemList::const_iterator end() const { return items.end(); }

    int bucketCount() const { return int(buckets.size()); }

private:
    static size_t nextSize(size_t n) {
        static const size_t primes[] = {
            17,       37,       79,        163,       331,       673,        1361,
            2729,     5471,     10949,     21911,     43853,     87719,      175447,
            350899,   701819,   1403641,   2807303,   5614657,   11229331,   22458671,
            44917381, 89834777, 179669557, 359339171, 718678369, 1437356741, 2147483647};
        for (size_t p : primes)
            if (p > n)
                return p;
        return n * 2 + 1;
    }
    void rehash(size_t n) {
        // Move the bucket nodes over instead of allocating new ones.
        std::vector<ZList<ZIter>> fresh(n);
        for (ZList<ZIter>& bucket : buckets)
            while (!bucket.isEmpty()) {
                ZIter b = bucket.first();
                fresh[items.nodeGet(bucket.nodeGet(b)).key.hash() % n].spliceLast(bucket, b);
            }
        buckets.swap(fresh);
    }

    ItemList items;
    std::vector<ZList<ZIter>> buckets;
};

#endif

#ifndef ZARRAY_H
#define ZARRAY_H

#include <vector>

// Contiguous resizable array, copied by value.
template <class T>
class ZArray {
public:
    ZArray() = default;
    explicit ZArray(int n) : v(n > 0 ? n : 0) {}

    int number() const { return int(v.size()); }
    int size() const { return int(v.size()); }
    bool isEmpty() const { return v.empty(); }
    void resize(int n) { v.resize(n > 0 ? n : 0); }
    void reserve(int n) { v.reserve(n > 0 ? n : 0); }
    void clear() { v.clear(); }
    void append(const T& value) { v.push_back(value); }
    void append(T&& value) { v.push_back(std::move(value)); }
    void del(int i) {
        if (i >= 0 && i < size())
            v.erase(v.begin() + i);
    }
    T& operator[](int i) { return v[i]; }
    const T& operator[](int i) const { return v[i]; }
    T* data() { return v.data(); }
    const T* data() const { return v.data(); }

    typename std::vector<T>::iterator begin() { return v.begin(); }
    typename std::vector<T>::iterator end() { return v.end(); }
    typename std::vector<T>::const_iterator begin() const { return v.begin(); }
    typename std::vector<T>::const_iterator end() const { return v.end(); }

private:
    std::vector<T> v;
};

#endif

// Property-list dictionaries: string keys, each once, in byte order (the
// order in which the writers emit them). Held as one sorted array rather
// than a tree: dictionaries are looked into far more often than changed,
// and one read from a file is built, walked and freed in single passes.
//
// The interface is the part of std::map the helper uses. As with a vector,
// an insertion or removal invalidates iterators and references into the
// dictionary; keys must not be changed through an iterator.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/plist/Value.h"

namespace wf {

class Dictionary {
 public:
  using key_type = std::string;
  using mapped_type = Value;
  using value_type = std::pair<std::string, Value>;
  using Entries = std::vector<value_type>;
  using size_type = std::size_t;
  using iterator = Entries::iterator;
  using const_iterator = Entries::const_iterator;
  using reverse_iterator = Entries::reverse_iterator;
  using const_reverse_iterator = Entries::const_reverse_iterator;

  Dictionary() = default;
  // As std::map: of a repeated key the first entry is kept.
  Dictionary(std::initializer_list<value_type> entries)
      : Dictionary(entries.begin(), entries.end()) {}
  template <typename It>
  Dictionary(It first, It last) {
    for (; first != last; ++first) emplace(first->first, first->second);
  }
  // Entries in any order, as a reader finds them; of a repeated key the
  // last entry is kept, as Foundation's readers do. Linear when the keys
  // come sorted, n log n otherwise.
  static Dictionary fromEntries(Entries entries);

  iterator begin() { return entries_.begin(); }
  iterator end() { return entries_.end(); }
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }
  const_iterator cbegin() const { return entries_.cbegin(); }
  const_iterator cend() const { return entries_.cend(); }
  reverse_iterator rbegin() { return entries_.rbegin(); }
  reverse_iterator rend() { return entries_.rend(); }
  const_reverse_iterator rbegin() const { return entries_.rbegin(); }
  const_reverse_iterator rend() const { return entries_.rend(); }

  bool empty() const { return entries_.empty(); }
  size_type size() const { return entries_.size(); }
  void clear() { entries_.clear(); }
  void reserve(size_type n) { entries_.reserve(n); }

  iterator lower_bound(std::string_view key) { return entries_.begin() + position(key); }
  const_iterator lower_bound(std::string_view key) const {
    return entries_.begin() + position(key);
  }
  iterator find(std::string_view key) {
    auto it = lower_bound(key);
    return it != end() && it->first == key ? it : end();
  }
  const_iterator find(std::string_view key) const {
    auto it = lower_bound(key);
    return it != end() && it->first == key ? it : end();
  }
  size_type count(std::string_view key) const { return find(key) != end() ? 1 : 0; }
  bool contains(std::string_view key) const { return find(key) != end(); }

  Value& at(std::string_view key) {
    auto it = find(key);
    if (it == end()) throw std::out_of_range("no such key in the dictionary");
    return it->second;
  }
  const Value& at(std::string_view key) const {
    auto it = find(key);
    if (it == end()) throw std::out_of_range("no such key in the dictionary");
    return it->second;
  }
  Value& operator[](std::string_view key) { return try_emplace(key).first->second; }

  // Inserts when the key is absent; never replaces.
  template <typename K, typename... A>
  std::pair<iterator, bool> try_emplace(K&& key, A&&... args) {
    std::string_view k(key);
    auto it = lower_bound(k);
    if (it != end() && it->first == k) return {it, false};
    it = entries_.emplace(it, std::piecewise_construct, std::forward_as_tuple(std::forward<K>(key)),
                          std::forward_as_tuple(std::forward<A>(args)...));
    return {it, true};
  }
  template <typename K, typename V>
  std::pair<iterator, bool> emplace(K&& key, V&& value) {
    return try_emplace(std::forward<K>(key), std::forward<V>(value));
  }
  std::pair<iterator, bool> insert(const value_type& entry) {
    return try_emplace(entry.first, entry.second);
  }
  std::pair<iterator, bool> insert(value_type&& entry) {
    return try_emplace(std::move(entry.first), std::move(entry.second));
  }
  // `value` may be an entry of this dictionary: it is used before anything
  // moves.
  template <typename K, typename V>
  std::pair<iterator, bool> insert_or_assign(K&& key, V&& value) {
    std::string_view k(key);
    auto it = lower_bound(k);
    if (it != end() && it->first == k) {
      it->second = std::forward<V>(value);
      return {it, false};
    }
    it = entries_.emplace(it, std::piecewise_construct, std::forward_as_tuple(std::forward<K>(key)),
                          std::forward_as_tuple(std::forward<V>(value)));
    return {it, true};
  }

  size_type erase(std::string_view key) {
    auto it = find(key);
    if (it == end()) return 0;
    entries_.erase(it);
    return 1;
  }
  iterator erase(const_iterator at) { return entries_.erase(at); }
  iterator erase(const_iterator first, const_iterator last) { return entries_.erase(first, last); }

  bool operator==(const Dictionary& other) const { return entries_ == other.entries_; }
  bool operator!=(const Dictionary& other) const { return !(*this == other); }

 private:
  size_type position(std::string_view key) const {
    auto it = std::lower_bound(entries_.begin(), entries_.end(), key,
                               [](const value_type& entry, std::string_view k) {
                                 return std::string_view(entry.first) < k;
                               });
    return static_cast<size_type>(it - entries_.begin());
  }

  Entries entries_;
};

}  // namespace wf

#pragma once

// What the text writer keeps of the layouts of the structures it writes.

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "encode/forms.hpp"
#include "foundation/json/text_output.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

// What the writer keeps of each layout of structures: the field numbers in
// the order of their names, and each name's key text as the tree's object
// writes it, ready to copy ('{' or ',', the quoted, escaped name, ':').
// Structures made alike share their list of names, so the layouts met last
// are found by the list's address; a layout stays put while the writer is
// in the structure.
class layouts {
 public:
  // Keys up to this long are copied in one fixed-size move.
  static constexpr std::size_t kShortKey = 32;

  struct layout {
    const std::string* first;
    int count;
    std::vector<int> order;  // empty when two names are the same (the tree's business)
    std::vector<std::string> names;
    std::string keys;  // padded by kShortKey bytes for the fixed-size moves
    std::vector<std::size_t> key_at;  // order.size() + 1 offsets into keys
  };

  const layout& of(const ixArrayHeader& h) {
    // A record and the records within it take turns.
    for (const layout* l : recent_)
      if (l && l->first == h.fields && l->count == h.nfields) return *l;
    const layout& l = find(h);
    recent_[next_++ % kTurns] = &l;
    return l;
  }

 private:
  const layout& find(const ixArrayHeader& h) {
    constexpr std::size_t kRecent = 8;
    for (std::size_t k = list_.size(); k > 0 && k + kRecent > list_.size(); --k)
      if (list_[k - 1].first == h.fields && list_[k - 1].count == h.nfields) return list_[k - 1];
    // Records made one by one hold lists of their own, mostly the same names.
    for (std::size_t k = list_.size(); k > 0 && k + kRecent > list_.size(); --k)
      if (same_names(list_[k - 1], h)) return list_[k - 1];
    layout& l = list_.emplace_back(layout{h.fields, h.nfields, field_order(h.fields, h.nfields),
                                          std::vector<std::string>(h.fields, h.fields + h.nfields), {}, {0}});
    {
      foundation::json::TextOutput text(l.keys);
      for (std::size_t k = 0; k < l.order.size(); ++k) {
        text.put(k ? ',' : '{');
        text.string(l.names[std::size_t(l.order[k])]);
        text.put(':');
        text.flush();
        l.key_at.push_back(l.keys.size());
      }
      text.finish();
    }
    l.keys.append(kShortKey, '\0');
    return l;
  }

  static bool same_names(const layout& l, const ixArrayHeader& h) {
    return l.count == h.nfields && std::equal(l.names.begin(), l.names.end(), h.fields);
  }

  std::deque<layout> list_;
  static constexpr std::size_t kTurns = 4;
  const layout* recent_[kTurns] = {};
  std::size_t next_ = 0;
};

}  // namespace ixtal_json::detail

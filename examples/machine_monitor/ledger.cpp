#include "ledger.hpp"

#include "../eventtext.hpp"

#include <utility>

Ledger::~Ledger() {
  if (idle_)
    g_source_remove(idle_);
}

void Ledger::accepted(guint32 local_id, bool property, std::string text) {
  open_.push_back({local_id, property, subscribed_.contains(local_id), false, std::move(text)});
  settle_later();
}

void Ledger::settle_later() {
  if (idle_)
    return;
  // Below the producer's own queue, so that it has run when this does.
  idle_ = g_idle_add(
      [](gpointer self) -> gboolean {
        static_cast<Ledger *>(self)->idle_ = 0;
        static_cast<Ledger *>(self)->settle();
        return G_SOURCE_REMOVE;
      },
      this);
}

void Ledger::refused(const std::string &text, const GError *error) {
  ++refused_;
  print_line("refused", text + " (code " + std::to_string(error->code) + ")");
}

void Ledger::subscribers_changed(const GArray *local_ids) {
  subscribed_.clear();
  for (guint i = 0; i < local_ids->len; ++i)
    subscribed_.insert(g_array_index(local_ids, guint32, i));
  for (auto &entry : open_)
    entry.ended = entry.ended || !subscribed_.contains(entry.local_id);
  news_ = true;
  settle_later();
}

void Ledger::settle() {
  for (const auto &entry : open_)
    enter(entry);
  open_.clear();
  if (std::exchange(news_, false))
    print_line("note", std::to_string(subscribed_.size()) + " declarations have subscribers");
}

void Ledger::enter(const Entry &entry) {
  if (!entry.live) {
    ++(entry.property ? kept_ : unheard_);
    print_line(entry.property ? "kept" : "unheard", entry.text);
  } else if (entry.ended) {
    ++in_doubt_;
    print_line("in doubt", entry.text);
  } else {
    ++sent_;
    print_line("sent", entry.text);
  }
}

std::string Ledger::summary() const {
  return std::to_string(sent_) + " sent to subscribers, " + std::to_string(kept_) +
         " kept for the next subscriber, " + std::to_string(unheard_) + " unheard, " +
         std::to_string(refused_) + " refused without a switch, " + std::to_string(in_doubt_) +
         " in doubt";
}

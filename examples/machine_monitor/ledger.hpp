// Keeps the books: what became of each event that was handed to the producer.
#pragma once

#include <varro2/varro2.h>

#include <set>
#include <string>
#include <vector>

// An accepted event leaves when the main loop runs the next time. It counts as sent when its
// declaration had a subscriber when it was handed over and still had one after that.
class Ledger {
 public:
  Ledger() = default;
  ~Ledger();
  Ledger(const Ledger &) = delete;
  Ledger &operator=(const Ledger &) = delete;

  void accepted(guint32 local_id, bool property, std::string text);
  void refused(const std::string &text, const GError *error);
  void subscribers_changed(const GArray *local_ids);
  // Enters what is still open. Only when the producer has run everything.
  void settle();

  std::string summary() const;

 private:
  struct Entry {
    guint32 local_id;
    bool property;
    bool live;
    bool ended;
    std::string text;
  };
  void enter(const Entry &entry);
  void settle_later();

  std::vector<Entry> open_;
  std::set<guint32> subscribed_;
  bool news_ = false; // the subscribers have changed
  guint idle_ = 0;
  guint64 sent_ = 0;
  guint64 kept_ = 0;    // a property without subscribers: the next one gets the latest value
  guint64 unheard_ = 0; // nobody subscribes
  guint64 refused_ = 0; // no switch
  guint64 in_doubt_ = 0;
};

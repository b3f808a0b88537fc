// What the rows call their functions with. Everything is made when it is first asked for, belongs
// to the Objects and is released with them: a function that keeps or frees what it only borrows is
// found by the sanitizer.
#pragma once

#include "owning.hpp"

#include <varro2/varro2.h>

#include <functional>
#include <vector>

namespace varro2::test {

class Objects {
 public:
  Objects() = default;
  ~Objects();
  Objects(const Objects &) = delete;
  Objects &operator=(const Objects &) = delete;

  // Lets what was queued run, so that its lines and leaks are this row's.
  void settle();

  // ---- Value objects. Their keys: "topic0" is "door", "text" is "open", "count" is 3; "text" has
  // the name space "ns", the complex type "complex", a user string, both display names and a tag.
  EventDeclaration *declaration();
  EventDeclaration *property_declaration();
  EventDeclaration *internal_declaration(); // without a topic
  Event *event();
  SubscribeExpression *expression(); // "text" is there
  PropertyState *state();            // "port" is "1", the state "active" is "1"
  Notification *notification();
  Inspectable *container(guint32 type = IT_EVENT);
  KeyValue *pair();
  JsonOptions *options();
  IdGenerator *generator();
  GDateTime *time();
  XmlNode *node(const char *xml = "<a name='value'/>");
  GByteArray *bytes(); // empty
  template <auto serialize, typename T>
  GByteArray *record(T *object) {
    GByteArray *array = bytes();
    serialize(object, array);
    return array;
  }
  guint32 *index() { return &index_; }
  guint32 *flag() { return &flag_; }
  const char **text_slot() { return &text_; } // for typed reads of texts
  GError **error() { return &error_slot; }
  GError **taken_error();          // holds an error of the row's own
  GList *texts(const char *first); // of one text

  // ---- Handles. Those that are not connected_... have no bus; the others have one of the test's
  // own with a switch that answers. given_...: for the functions that free them.
  EventProducer *producer();
  EventProducer *given_producer();
  guint32 declared(); // by the producer above
  EventConsumer *consumer();
  EventConsumer *given_consumer();
  guint32 subscribed(); // by the connected consumer below
  EventQuery *query();
  EventQuery *given_query();
  Producer *bus_producer();
  guint32 bus_declared(); // 1
  Consumer *bus_consumer();
  guint32 bus_subscribed(); // 1
  Query *bus_query();
  EventProducer *connected_producer();
  EventConsumer *connected_consumer();
  EventQuery *connected_query();
  Producer *connectable_bus_producer(); // the bus is there for producer_init_dbus()
  Producer *connected_bus_producer();
  Consumer *connectable_bus_consumer();
  Consumer *connected_bus_consumer();
  Query *connectable_bus_query();
  Query *connected_bus_query();
  sd_bus *bus();
  // What became of a connection made by the function itself.
  GSource **source_slot() { return &source_; }
  sd_bus **bus_slot();
  BusWatcher *watcher() { return &watcher_; }
  SendCounters *counters() { return &counters_; }
  EventDeclaration **declaration_slot();
  CallbackParams **params_slot();

  // Released with the Objects.
  template <typename T>
  T *keep(T *object, void (*release)(T *)) {
    releases_.push_back([=] { release(object); });
    return object;
  }

  // For a function that takes the object over: it is released with the Objects unless the function
  // had it and did what it was asked.
  template <typename T>
  T *give(T *object, void (*release)(T *)) {
    gifts_.push_back({object, [=] { release(object); }});
    return object;
  }
  void hand_over() { gifts_.clear(); }
  void keep_after_all(gconstpointer object);

  GError *error_slot = nullptr;

 private:
  struct Gift {
    gconstpointer object;
    std::function<void()> release;
  };

  EventDeclaration *new_declaration(gboolean internal);

  guint32 index_ = 0;
  guint32 flag_ = 0;
  const char *text_ = nullptr;
  GSource *source_ = nullptr;
  sd_bus *bus_ = nullptr;
  BusWatcher watcher_{nullptr, nullptr, nullptr};
  SendCounters counters_{};
  EventDeclaration *declaration_ = nullptr;
  CallbackParams *params_ = nullptr;
  EventProducer *producer_ = nullptr;
  EventConsumer *consumer_ = nullptr;
  EventConsumer *connected_consumer_ = nullptr;
  Producer *bus_producer_ = nullptr;
  Consumer *bus_consumer_ = nullptr;
  std::vector<std::function<void()>> releases_; // the last first
  std::vector<Gift> gifts_;
};

} // namespace varro2::test

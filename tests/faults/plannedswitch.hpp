// A switch that runs with a plan of faults.
#pragma once

#include "live.hpp"
#include "preload/faultplan.hpp"
#include "switchprocess.hpp"

#include <string>

namespace varro2::test {

// The plan is shared with the process that is started; that process must outlive no plan.
class SharedPlan {
 public:
  explicit SharedPlan(const std::string &file);
  ~SharedPlan();
  SharedPlan(const SharedPlan &) = delete;
  SharedPlan &operator=(const SharedPlan &) = delete;

  FaultPlan *operator->() const { return plan_; }

  // From now on the call of that number fails; counting begins anew.
  void fail(int call, int error_number);
  bool has_failed() const { return plan_->file_calls >= plan_->failing_call; }

 private:
  FaultPlan *plan_;
};

// A bus, a switch under a plan, and a peer to call it.
class PlannedSwitch : public ::testing::Test {
 protected:
  PlannedSwitch();

  std::string own_types() const { return bus_.folder() + "/own-types"; }

  LogCapture log_;
  PrivateBus bus_;
  SharedPlan plan_{bus_.folder() + "/plan"};
  SwitchProcess switch_;
  ForeignPeer caller_{bus_.address()};
};

} // namespace varro2::test

// The name under which tests look for the fake switch, producer and consumer.
#pragma once

#include "foreignpeer.hpp"

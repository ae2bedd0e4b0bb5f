// Runs a part of a test in a process of its own: for what lasts as long as its process, or should end with it.
#pragma once

#include <functional>

// Runs `body` in a child and returns what it returned. Expectations that fail in it fail the test.
int in_child(const std::function<int()> &body);

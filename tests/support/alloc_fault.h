// Lets an allocation of the code under test fail. Its calls of malloc, calloc, realloc, strdup, strndup and free come
// here first: the linker wraps them in norv_unit_tests, also those of the libraries that are linked statically. A glob
// counts as one allocation. What else the C library allocates for itself (fopen, qsort) and what operator new takes is
// not seen.
#pragma once

// From construction to destruction the `nth` allocation of this thread fails, counted from 1, and the others are
// counted; with 0 none fails. One at a time. The loop that lets each allocation of an operation fail in turn:
//
//   for (int nth = 1, struck = 1; struck; nth++) {
//       ... what the operation needs
//       AllocFault fault(nth);
//       const int result = operation();
//       struck = fault.struck();
//       if (struck)
//           ... result is a failure, fault.held() is 0, nothing changed
//   }
class AllocFault
{
  public:
    explicit AllocFault(int nth);
    AllocFault(const AllocFault &) = delete;
    AllocFault &operator=(const AllocFault &) = delete;
    ~AllocFault();

    [[nodiscard]] bool struck() const { return nth_ != 0 && allocations_ >= nth_; }
    [[nodiscard]] int allocations() const { return allocations_; } // asked for, the failed one among them
    [[nodiscard]] int held() const { return held_; }               // blocks allocated less blocks freed

    // For the wrappers: whether this allocation is the one to fail; a block taken (1) or given back (-1).
    bool strikes();
    void *count(int change, void *block);

  private:
    int nth_, allocations_ = 0, held_ = 0;
};

// Network interfaces inside a box, through rtnetlink(7).
#pragma once

#include <string>

#include "autocleanup/unique.h"

class Sandbox;

class BoxLinks
{
  public:
    explicit BoxLinks(const Sandbox &box);

    // Makes two interfaces joined by a wire; both are down. False when the kernel refuses, errno tells.
    [[nodiscard]] bool wire(const std::string &left, const std::string &right);
    // Switches an interface on or off. A wired interface runs while both ends are on.
    [[nodiscard]] bool set(const std::string &name, bool is_up);

  private:
    UniqueFd netlink_;
};

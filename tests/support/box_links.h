// Network interfaces inside a box, through rtnetlink(7).
#pragma once

#include <string>

#include "autocleanup/unique.h"

class Sandbox;

class BoxLinks
{
  public:
    explicit BoxLinks(const Sandbox &box);
    explicit BoxLinks(UniqueFd netlink); // a route netlink socket of the network they are for

    // Makes two interfaces joined by a wire; both are down. False when the kernel refuses, errno tells.
    [[nodiscard]] bool wire(const std::string &left, const std::string &right);
    // The same with both on and running: until then the kernel drops what is sent, and tells nobody.
    [[nodiscard]] bool live_wire(const std::string &left, const std::string &right);
    // Makes one interface of a kind: "bridge", "bond", "tun". Down; false with EOPNOTSUPP where this kernel has no
    // such.
    [[nodiscard]] bool add(const std::string &name, const std::string &kind);
    // Makes an interface a port of a bridge or a member of a bond.
    [[nodiscard]] bool enslave(const std::string &name, const std::string &master);
    // Switches an interface on or off. A wired interface runs while both ends are on.
    [[nodiscard]] bool set(const std::string &name, bool is_up);

    // Waits until the kernel has seen that an interface runs, or that it does not. False after ten seconds.
    [[nodiscard]] bool settle(const std::string &name, bool runs);
    // The number of an interface, which stays when it is renamed; 0 when there is none.
    [[nodiscard]] int index(const std::string &name);

  private:
    UniqueFd netlink_;
};

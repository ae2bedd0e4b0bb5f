"""The appliance in a virtual machine. docs/lab.md tells how to use it."""

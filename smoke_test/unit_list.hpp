// The attached units, as discovery found them, for whoever wants to see them and
// for the choice of one among them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "timing/device.hpp"

// Prints one line per unit, with its port, serial number and text, in the order of
// discovery: "port=usb://1 serial=SN1 text=converter". Control characters are
// written out.
void print_units(const std::vector<zelk::timing::DiscoveredDevice>& units);

// The port of the unit with this serial number, which is not empty. Throws
// std::runtime_error, with a text that names the units there are, unless exactly
// one that can be opened has it. An entry of discovery without a port cannot.
std::string port_of_unit(const std::vector<zelk::timing::DiscoveredDevice>& units,
                         std::string_view serial);

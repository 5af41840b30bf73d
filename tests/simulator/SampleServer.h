// A sample two-socket server as its BMC describes it: the SDR repository (full and compact sensor
// records with event-only, locator and OEM records among them) and a SEL of a few dozen realistic
// events.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace bmcsim {

using SdrRecord = std::vector<unsigned char>;
using SelRecord = std::array<unsigned char, 16>;

// Every record of the repository, in repository order, record IDs from 1.
std::vector<SdrRecord> sampleSdrRepository();
// The sample server's events, record IDs from 1, time stamps from March 2015 on.
std::vector<SelRecord> sampleEventLog();

// "main_sdr_add" commands that load the repository into the simulated BMC.
std::string sdrCommands(const std::vector<SdrRecord>& records);

}  // namespace bmcsim

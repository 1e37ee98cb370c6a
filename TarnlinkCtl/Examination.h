#pragma once

#include "TarnSystem/AuthorizationServices.h"
#include "TarnSystem/Doctor.h"
#include "TarnSystem/KernelTables.h"
#include "TarnSystem/SystemClock.h"
#include "TarnSystem/SystemStateReading.h"
#include "TarnSystem/Task.h"
#include "TarnSystem/UserDefaults.h"
#include "TarnXPC/TarnXPCClient.h"

#include <functional>
#include <memory>
#include <string>

namespace tarn {

/// Gathers what doctor::diagnose() judges by. Changes nothing.
///
/// Thread: main actor; apart from the daemon's answer, which is waited for, calls block.
/// Ownership: everything must outlive the task. Errors: none is thrown; what cannot be had is as in Facts.
struct Examination {
    TarnXPCClient &client;
    HostSurvey &host;
    AuthorizationServices &authorizations;
    KernelTables &tables;
    SystemClock &clock;
    UserDefaults &defaults;
    /// Opens a reader of the network. Throws SystemStateError.
    std::function<std::unique_ptr<SystemStateReading>()> openReader;
    /// What the last reading could ask.
    std::function<SystemVisibility()> visibility;
    VPNSplitDNS::StoreOpener openStore;
    /// Of the daemon.
    std::string stateFolder;

    Task<doctor::Facts> run();

private:
    Task<void> askDaemon(doctor::Facts &facts);
    void askSystem(doctor::Facts &facts);
    void readNetwork(doctor::Facts &facts);
    void readFiles(doctor::Facts &facts);
};

} // namespace tarn

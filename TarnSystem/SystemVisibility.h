#pragma once

namespace tarn {

/// What of the system could be asked in the last reading.
struct SystemVisibility {
    enum class Source {
        notUsed,      ///< This system has no such thing.
        answered,     ///< Asked, and it answered.
        notRunning,   ///< Not there.
        notAnswering, ///< There, but gave no answer in time or refused it.
    };

    Source systemBus = Source::notUsed;
    Source networkManager = Source::notUsed;
    Source resolved = Source::notUsed;
    /// A folder or file with DHCP leases is there but could not be read.
    bool leasesHidden = false;
    /// The resolver file is there but could not be read.
    bool resolverFileHidden = false;
    /// Of some device it could not be told whether it is a cable or a radio.
    bool devicesHidden = false;
    /// The kernel's state changed during every one of several attempts to read it.
    bool unsettled = false;

    friend bool operator==(const SystemVisibility &, const SystemVisibility &) = default;
};

} // namespace tarn

#include "zel/fleet/fleettarget.h"

#include "fleet/hostidentifier.h"
#include "zel/terminal/messages.h"

namespace zel {

std::optional<fleet::FleetAddress> AddressOf(const FleetOptions& options) {
    fleet::FleetAddress address;
    std::string problem;
    if (fleet::ReadFleetAddress(options.url, options.passwordFile, &address, &problem))
        return address;
    Say(problem);
    return std::nullopt;
}

int TellFailure(const fleet::FleetFailure& failure) {
    if (failure.remedy == fleet::FleetRemedy::over)
        return exitCode::interrupted;
    Say(failure.text);
    return exitCode::noStore;
}

std::string HostOf(const FleetOptions& options) {
    std::string problem;
    if (options.host.empty()) {
        std::string host = fleet::HostIdentifier(&problem);
        if (host.empty())
            Say(problem + " with --host");
        return host;
    }
    if (fleet::IsHostName(options.host))
        return options.host;
    Say("--host: " + options.host + " is no name for a host");
    return "";
}

}  // namespace zel

// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/MavlinkCodec.h"
#include "telemetry/MavlinkMessages.h"

/// Who speaks for a vehicle. A system is one once a heartbeat of an autopilot was heard of it: ground
/// stations, gimbals and cameras send heartbeats too. The component that sent the first is the vehicle's
/// autopilot.
class Autopilot
{
public:
    /// The heartbeat of some vehicle's autopilot; nothing for any other message.
    static std::optional<mavlink::Heartbeat> heartbeat(const mavlink::Message& message)
    {
        if (message.id != mavlink::Heartbeat::Id) {
            return std::nullopt;
        }
        const auto heartbeat = mavlink::read<mavlink::Heartbeat>(message.payload);
        return heartbeat.isAutopilots() ? std::optional(heartbeat) : std::nullopt;
    }

    /// Whether such a heartbeat is this one's, which the first is.
    bool speaks(const mavlink::Message& message)
    {
        if (!m_system) {
            m_system = message.system;
            m_component = message.component;
        }
        return m_system == message.system && m_component == message.component;
    }
    /// Of its vehicle; nothing until it was heard.
    const std::optional<quint8>& system() const { return m_system; }

private:
    std::optional<quint8> m_system;
    quint8 m_component = 0;
};

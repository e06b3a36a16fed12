// SPDX-License-Identifier: MIT
#pragma once

/// Sends the whole application's HTTP traffic through the local debugging proxy when the host asks for it.
void InstallDebugProxy();

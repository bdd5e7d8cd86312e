// SPDX-License-Identifier: Apache-2.0
//
// Scripted stand-in for the host platform.
#pragma once

// SPDX-License-Identifier: Apache-2.0

#include "support/fake_platform.hpp"

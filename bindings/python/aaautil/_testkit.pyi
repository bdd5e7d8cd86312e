# SPDX-License-Identifier: Apache-2.0
# What cffi generates has no types: ffi and lib are as the public headers say.
from typing import Any

ffi: Any
lib: Any

// SPDX-License-Identifier: Apache-2.0
//
// The tests that every sysdb provider must pass. They use only the platform's
// client interface. A provider's own test program is linked with
// sysdb_conformance*.cc and supplies an empty database; AAA_SYSDB_PROVIDER names
// the provider. One that keeps its contents
// in the memory of a single process leaves out sysdb_conformance_processes.cc.
#pragma once

// Defined by the provider's test program: called once, before anything is bound.
void prepare_database();

// Defined by the provider's test program: the longest absolute path it accepts.
// No component of the paths that are tried looks like a number.
unsigned longest_path();

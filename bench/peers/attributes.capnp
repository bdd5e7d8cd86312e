# SPDX-License-Identifier: Apache-2.0
# A list of any attributes in any order, and a record with a field for each
# type of the measured messages.
@0xd3a1c5f0b7e64298;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("peers::cp");

struct Attribute {
  type @0 :UInt32;
  union {
    number @1 :UInt32;
    text @2 :Data;
  }
}

struct AttributeList {
  name @0 :Text;
  attributes @1 :List(Attribute);
}

# A number is never absent in this format, so each has a bit that says whether it is set.
struct Record {
  serviceType @0 :UInt32;
  authenOption @1 :UInt32;
  methodlist @2 :Data;
  username @3 :Data;
  authenMethod @4 :UInt32;
  ttyname @5 :Data;
  remoteAddr @6 :Data;
  password @7 :Data;
  userDbFlag @8 :UInt32;
  type @9 :UInt32;
  acctInbytes @10 :UInt32;
  replymsg @11 :Data;
  privLvl @12 :UInt32;
  errmsg @13 :Data;
  debug @14 :UInt32;
  autocmd @15 :Data;
  withServiceType @16 :Bool;
  withAuthenOption @17 :Bool;
  withAuthenMethod @18 :Bool;
  withUserDbFlag @19 :Bool;
  withType @20 :Bool;
  withAcctInbytes @21 :Bool;
  withPrivLvl @22 :Bool;
  withDebug @23 :Bool;
}

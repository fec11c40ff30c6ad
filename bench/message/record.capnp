# The record of the message case, for Cap'n Proto.
@0xd4b7f0a3c86e1925;

struct Record {
  active @0 :Bool;
  level @1 :Int32;
  counter @2 :UInt32;
  balance @3 :Int64;
  order @4 :UInt64;
  price @5 :Float64;
  customer @6 :Text;
  created @7 :Int64;
  digest @8 :Data;
  samples @9 :List(Int32);
}

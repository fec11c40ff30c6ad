// Self-describing messages: what it costs to make one, to read one, and to find a field.
#include "message/arrays.h"
#include "message/codec.h"

int main() {
    using namespace bench;
    using namespace bench::message;
    compare("message", metrics(), {"quorl", quorlRun},
            {{"msgpack-c", msgpackRun},
             {"libbson", bsonRun},
             {"flexbuffers", flexbuffersRun},
             {"capnproto, compiled", capnprotoRun}});
    reportArrays();
}

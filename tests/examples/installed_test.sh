#!/bin/sh
# Installs a build into a prefix of the test's own, builds the C examples against it as their first lines say, and compares what
# they print; and a program with each further library. installed_test.sh BUILD EXAMPLES EXPECTED
set -eu
build=$1 examples=$2 expected=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cmake --install "$build" --prefix "$folder/prefix" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(find "$folder/prefix" -name quorl.pc)")
export PKG_CONFIG_PATH
LD_LIBRARY_PATH=$(pkg-config --variable=libdir quorl)
export LD_LIBRARY_PATH
cd "$folder"
for source in "$examples"/*.c; do
    name=$(basename "$source" .c)
    command=$(sed -n "s/^ \*  *\(cc $name\.c .*\)/\1/p" "$source")
    [ -n "$command" ] || { echo "$name.c does not say how it is built"; exit 1; }
    cp "$source" .
    sh -euc "$command" || { echo "$command does not build $name.c"; exit 1; }
    ./"$name" >"$name.out"
    diff "$expected/$name.txt" "$name.out"
done
# A library whose file forgets what it needs does not link.
cat >quorlcmq.c <<'end'
#include <quorl/quorlcmq.h>
#include <stdio.h>

static int done;

static void onTask(quorlcmEvent listener, quorlMsg task, void *closure) {
    (void)listener, (void)task, (void)closure;
    done = 1;
}

int main(void) {
    quorlTransport transport;
    quorlcmTransport crew, boss;
    quorlcmEvent worker;
    quorlMsg task;
    if (quorl_Open() != QUORL_OK || quorlTransport_Create(&transport, NULL, NULL, NULL) != QUORL_OK ||
        quorlcmTransport_CreateDistributedQueueEx(&crew, transport, "crew", 1, 1, 1, 0.05, 0.2) != QUORL_OK ||
        quorlcmEvent_CreateListener(&worker, QUORL_DEFAULT_QUEUE, onTask, crew, "work", NULL) != QUORL_OK ||
        quorlcmTransport_Create(&boss, transport, "boss", QUORL_FALSE, NULL, QUORL_FALSE, NULL) != QUORL_OK ||
        quorlcmTransport_AddListener(boss, "crew", "work") != QUORL_OK || quorlMsg_Create(&task) != QUORL_OK ||
        quorlMsg_SetSendSubject(task, "work") != QUORL_OK || quorlcmTransport_Send(boss, task) != QUORL_OK)
        return 1;
    quorlMsg_Destroy(task);
    quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 60);
    puts(done ? "done" : "not done");
    return quorl_Close() == QUORL_OK ? 0 : 1;
}
end
cat >quorlsd.c <<'end'
#include <quorl/quorl.h>
#include <quorl/quorlsd.h>
#include <stdio.h>

int main(void) {
    puts(quorlSecureDaemon_SetUserNameWithPassword("", "") == QUORL_INVALID_ARG ? "done" : "not done");
    return quorl_Version() == NULL;
}
end
for library in quorlcmq quorlsd; do
    # shellcheck disable=SC2046 # words
    cc "$library.c" $(pkg-config --cflags --libs "$library") -o "$library"
    [ "$(./"$library")" = done ] || { echo "$library.c does not work"; exit 1; }
done
# One line of a version each, so that what a file forgets to link with is missed.
for library in quorlcm quorlft; do
    printf '#include <quorl/quorl.h>\n#include <quorl/%s.h>\n#include <stdio.h>\nint main(void) {\n    return puts(%s_Version()) < 0 || puts(quorl_Version()) < 0;\n}\n' \
        "$library" "$library" >"$library.c"
    # shellcheck disable=SC2046 # words
    cc "$library.c" $(pkg-config --cflags --libs "$library") -o "$library"
    ./"$library" | uniq | diff - "$(printf '%s\n' "$(pkg-config --modversion "$library")" >version && echo version)"
done
# A worker calls functions of two libraries.
printf '#include <quorl/quorlcmq.h>\nint main(void) {\n    return quorlcmTransport_CreateDistributedQueueEx(0, 0, 0, 1, 1, 1, 1, 3) != QUORL_INVALID_ARG\n        || quorlcmTransport_Destroy(0) == QUORL_OK || quorlcmEvent_CreateListener(0, 0, 0, 0, 0, 0) == QUORL_OK;\n}\n' >worker.c
# shellcheck disable=SC2046 # words
cc worker.c $(pkg-config --cflags --libs quorlcmq) -o worker
./worker

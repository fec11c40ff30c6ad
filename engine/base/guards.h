// Says which lock guards what, for people and for clang, which checks it (-Wthread-safety). Other compilers see nothing.
#pragma once

#if defined(__clang__)
#define QUORL_CLANG_ONLY(attribute) __attribute__((attribute))
#else
#define QUORL_CLANG_ONLY(attribute)
#endif

// Of a class: it is a lock; or it holds one from its making to its end.
#define QUORL_LOCK QUORL_CLANG_ONLY(capability("mutex"))
#define QUORL_SCOPED_LOCK QUORL_CLANG_ONLY(scoped_lockable)

// Of a variable: whoever reads or writes it holds the lock.
#define GUARDED_BY(lock) QUORL_CLANG_ONLY(guarded_by(lock))
// Of a pointer: whoever reads or writes what it points to holds the lock.
#define POINTS_TO_GUARDED_BY(lock) QUORL_CLANG_ONLY(pt_guarded_by(lock))

// Of a function: its caller holds the locks; it takes them; it gives them up.
#define REQUIRES(...) QUORL_CLANG_ONLY(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) QUORL_CLANG_ONLY(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) QUORL_CLANG_ONLY(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) QUORL_CLANG_ONLY(release_capability(__VA_ARGS__))
// Of a function: what it does is safe for a reason that its comment gives and that clang cannot see.
#define UNCHECKED_GUARDS QUORL_CLANG_ONLY(no_thread_safety_analysis)

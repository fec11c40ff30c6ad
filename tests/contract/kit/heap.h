// The heap as the bridge sees it: its allocations can be made to fail, and what it does not give back is known by size.
//
// The build renames the references to malloc, calloc, realloc and free in the bridge's objects, and in no others, to
// the functions defined here; so are those to pthread_mutex_lock and pthread_mutex_unlock, which only go into the
// journal.
#ifndef QUORL_CONTRACT_HEAP_H
#define QUORL_CONTRACT_HEAP_H

#include <cstddef>
#include <map>
#include <mutex>
#include <vector>

namespace contract {

class Heap {
  public:
    // Starts the account of one call: allocations from now on are numbered from 1.
    void begin();
    // Makes the nth allocation of the next call fail; 0 for none.
    void fail(int nth);
    // How many allocations the call asked for.
    int asked() const;
    // Sizes of the blocks made since begin() that are still held, in the order of their making.
    std::vector<size_t> left() const;
    // How many blocks are held in all, whenever they were made.
    size_t held() const;
    // Sizes of all held blocks, in the order of their making.
    std::vector<size_t> held_sizes() const;
    // Reports every held block that was written to past its end. A sanitizer sees the access itself, and has no need of it.
    void check() const;
    // In the next call a block that is freed with anything but zeros in it is reported.
    void want_wiped_blocks() { armed_wiped_ = true; }

    void* allocate(size_t size, bool zeroed);
    void release(void* block);
    void* resize(void* block, size_t size);

  private:
    struct Block {
        size_t size;
        long serial;
    };
    mutable std::mutex mutex_;
    std::map<void*, Block> blocks_;  // guarded by mutex_, as is all below
    long next_ = 1;
    long call_start_ = 1;
    int asked_ = 0;
    int armed_ = 0;
    int fail_at_ = 0;
    bool armed_wiped_ = false;
    bool wiped_ = false;
};

Heap& heap();

// True on the thread that runs a native or a callback at this moment; only such allocations are numbered and can fail.
bool inside_bridge();
void set_inside_bridge(bool inside);

}  // namespace contract

#endif

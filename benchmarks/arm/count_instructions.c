/* A qemu plugin that prints, at the end, how many instructions the emulated program ran. With the argument
 * `blocks=on` it prints instead, for each block of code as it was translated, its address, its number of
 * instructions and how often it ran. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* What it needs of qemu's plugin interface, version 1; Debian packages no header for it. */
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
uint64_t qemu_plugin_tb_vaddr(const struct qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*call)(qemu_plugin_id_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, int operation,
                                              void* counter, uint64_t value);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*call)(qemu_plugin_id_t, void*),
                                    void* data);

extern int qemu_plugin_version;
int qemu_plugin_version = 1;

/* Blocks in the order of their translation, the last one first. They live as long as the program. */
struct Block {
    struct Block* next;
    uint64_t address;
    size_t instructions;
    uint64_t runs;
};

static struct Block* blocks;

static void countBlock(qemu_plugin_id_t id, struct qemu_plugin_tb* translated)
{
    const int add = 0;
    struct Block* const block = malloc(sizeof *block);
    (void)id;
    if (block == NULL)
        abort();
    block->next = blocks;
    block->address = qemu_plugin_tb_vaddr(translated);
    block->instructions = qemu_plugin_tb_n_insns(translated);
    block->runs = 0;
    blocks = block;
    qemu_plugin_register_vcpu_tb_exec_inline(translated, add, &block->runs, 1);
}

static void printTotal(qemu_plugin_id_t id, void* data)
{
    uint64_t instructions = 0;
    const struct Block* block;
    (void)id;
    (void)data;
    for (block = blocks; block != NULL; block = block->next)
        instructions += block->instructions * block->runs;
    fprintf(stderr, "%llu\n", (unsigned long long)instructions);
}

static void printBlocks(qemu_plugin_id_t id, void* data)
{
    const struct Block* block;
    (void)id;
    (void)data;
    for (block = blocks; block != NULL; block = block->next)
        fprintf(stderr, "%llx %llu %llu\n", (unsigned long long)block->address,
                (unsigned long long)block->instructions, (unsigned long long)block->runs);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv);
int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv)
{
    (void)info;
    qemu_plugin_register_vcpu_tb_trans_cb(id, countBlock);
    qemu_plugin_register_atexit_cb(
        id, argc == 1 && strcmp(argv[0], "blocks=on") == 0 ? printBlocks : printTotal, NULL);
    return 0;
}

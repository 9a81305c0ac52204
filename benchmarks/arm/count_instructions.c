/* A qemu plugin that prints, at the end, how many instructions the emulated program ran. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* What it needs of qemu's plugin interface, version 1; Debian packages no header for it. */
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*call)(qemu_plugin_id_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, int operation,
                                              void* counter, uint64_t value);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*call)(qemu_plugin_id_t, void*),
                                    void* data);

extern int qemu_plugin_version;
int qemu_plugin_version = 1;

static uint64_t instructions;

static void countBlock(qemu_plugin_id_t id, struct qemu_plugin_tb* block)
{
    const int add = 0;
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, add, &instructions,
                                             qemu_plugin_tb_n_insns(block));
}

static void print(qemu_plugin_id_t id, void* data)
{
    (void)id;
    (void)data;
    fprintf(stderr, "%llu\n", (unsigned long long)instructions);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv);
int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv)
{
    (void)info;
    (void)argc;
    (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, countBlock);
    qemu_plugin_register_atexit_cb(id, print, NULL);
    return 0;
}

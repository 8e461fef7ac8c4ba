/*
 * The emulated RMC's own commands, as an ipmi_sim module.
 *
 * ipmi_sim answers the standard commands (Get Device ID, the SDR repository)
 * from its configuration; this module adds what only the RMC knows:
 *
 *   netfn 0x3A cmd 0x80  one chunk of an RMC CLI command (name + text payload)
 *   netfn 0x3A cmd 0x81  doorbell 1 (inventory request)
 *   netfn 0x3A cmd 0x82  doorbell 2 (telemetry)
 *   netfn 0x3A cmd 0x83  doorbell 3 (I/O firmware update)
 *   netfn 0x06 cmd 0x36  the interface capabilities (5 bytes)
 *   netfn 0x34 cmd 0x08  the partition id of the host (8 bytes)
 *
 * The option string of "loadlib" is the state folder. There:
 *   NNNNNN-<command>.txt  every command received whole (payload without its
 *                         terminating NUL), written under a temporary name
 *                         and renamed, so a reader never sees half a file;
 *   doorbell1..3          the bytes a doorbell answers (absent: nothing);
 *   inject                "STATUS COUNT [EXIT [AFTER]]": after AFTER chunks
 *                         taken, the next COUNT chunks are refused with that
 *                         transfer status;
 *   inject_cc             "CC COUNT [0 [AFTER]]": the same for the commands
 *                         of net function 0x3A, answered with that
 *                         completion code alone;
 *   max_length            the largest declared payload length accepted
 *                         (default 16 MiB), larger ones get status 8;
 *   capabilities          the 5 bytes of 0x06 0x36 (default 01 40 40 0a 01);
 *   partition_id          the 8 bytes of 0x34 0x08, zero-padded (default
 *                         01 00 00 00 00 00 00 00);
 *   rmc.log               one line per command handled.
 *
 * ipmi_sim runs one thread, so the handlers need no locking.
 */

#define _GNU_SOURCE

#include <OpenIPMI/mcserv.h>

#include <dirent.h>
#include <errno.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#define RMC_NETFN 0x3A
#define RMC_CMD_CLI_CHUNK 0x80
#define RMC_CMD_DOORBELL1 0x81
#define RMC_CMD_DOORBELL3 0x83
#define APP_NETFN 0x06
#define APP_CMD_GET_CAPABILITIES 0x36
#define PARTITION_NETFN 0x34
#define PARTITION_CMD_GET_ID 0x08

#define CHUNK_SIZE 60
#define NAME_FIELD_LENGTH 20
#define FIRST_PAYLOAD_OFFSET 27
#define FIRST_PAYLOAD_BYTES 33
#define NEXT_PAYLOAD_OFFSET 3
#define NEXT_PAYLOAD_BYTES 57

#define DEFAULT_MAX_LENGTH (16u * 1024u * 1024u)
/* Indexes below this are never handed out, so that a client that counts
 * chunks instead of echoing the RMC's index is caught at once. */
#define LOWEST_INDEX 0x0100

#define CC_OK 0x00
#define CC_REQUEST_LENGTH_INVALID 0xC7

/* Transfer statuses of the RMC. */
enum {
    TS_OK = 0,
    TS_INCOMPLETE = 1,
    TS_EXEC_FAILED = 2,
    TS_BAD_INDEX = 3,
    TS_ENTRIES_FULL = 4,
    TS_NOT_SUPPORTED = 5,
    TS_NO_MEMORY = 6,
    TS_TOO_LONG = 8
};

/* The RMC CLI commands this RMC carries out. */
static const char *const known_commands[] = {
    "WriteInventory",
    "MPEventGen",
    "WriteTelemetry",
    "WriteAppTelemetry",
    NULL
};

struct transfer {
    int active;
    char command[NAME_FIELD_LENGTH + 1];
    uint32_t declared;      /* payload length, terminating NUL included */
    uint32_t received;
    unsigned char *payload;
    uint16_t next_index;    /* what the next chunk must carry */
    uint32_t rng;
    unsigned int chunks;
};

static struct {
    char *dir;
    unsigned long last_file;   /* sequence number of the last file written */
    unsigned long transfers;
    struct transfer t;
} rmc;

static void rmc_log(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

static void rmc_log(const char *fmt, ...)
{
    char path[4096];
    FILE *f;
    va_list args;

    snprintf(path, sizeof(path), "%s/rmc.log", rmc.dir);
    f = fopen(path, "a");
    if (!f)
        return;
    va_start(args, fmt);
    vfprintf(f, fmt, args);
    va_end(args);
    fputc('\n', f);
    fclose(f);
}

static void state_path(char *out, size_t size, const char *name)
{
    snprintf(out, size, "%s/%s", rmc.dir, name);
}

/* Reads a small state file whole; -1 when it is absent. */
static long read_state_file(const char *name, unsigned char *buf, size_t size)
{
    char path[4096];
    FILE *f;
    size_t got;

    state_path(path, sizeof(path), name);
    f = fopen(path, "rb");
    if (!f)
        return -1;
    got = fread(buf, 1, size, f);
    fclose(f);
    return (long) got;
}

static uint32_t xorshift32(uint32_t *state)
{
    uint32_t x = *state;

    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    *state = x;
    return x;
}

static void seed_transfer(struct transfer *t)
{
    struct timeval now;
    uint32_t seed;

    gettimeofday(&now, NULL);
    seed = (uint32_t) now.tv_sec * 2654435761u ^ (uint32_t) now.tv_usec ^ ((uint32_t) getpid() << 16) ^
           (uint32_t) (rmc.transfers * 40503u);
    t->rng = seed ? seed : 0x9E3779B9u;
}

/* A fresh index no client can guess: random, never 0, never small, never the
 * one just used. */
static uint16_t draw_index(struct transfer *t)
{
    uint16_t index;

    do {
        index = (uint16_t) (LOWEST_INDEX + xorshift32(&t->rng) % (0x10000u - LOWEST_INDEX));
    } while (index == t->next_index);
    return index;
}

static void drop_transfer(void)
{
    free(rmc.t.payload);
    memset(&rmc.t, 0, sizeof(rmc.t));
}

static int is_known_command(const char *name)
{
    int i;

    for (i = 0; known_commands[i]; i++) {
        if (strcmp(known_commands[i], name) == 0)
            return 1;
    }
    return 0;
}

static uint32_t max_length(void)
{
    unsigned char buf[32];
    long got = read_state_file("max_length", buf, sizeof(buf) - 1);
    char *end;
    unsigned long value;

    if (got <= 0)
        return DEFAULT_MAX_LENGTH;
    buf[got] = '\0';
    value = strtoul((char *) buf, &end, 0);
    if (end == (char *) buf)
        return DEFAULT_MAX_LENGTH;
    return value > 0xFFFFFFFFul ? 0xFFFFFFFFu : (uint32_t) value;
}

/* Takes one use off a fault file "VALUE COUNT [EXTRA [AFTER]]" (values 0
 * to 255): after AFTER commands let through, the next COUNT get the fault.
 * Counted down in the file, removed when used up. 1 when it applies. */
static int take_counted(const char *file, unsigned char *value, unsigned char *extra)
{
    char path[4096];
    unsigned char buf[64];
    long got = read_state_file(file, buf, sizeof(buf) - 1);
    int v, ex = 0;
    unsigned int count, after = 0;
    int fields;
    int applies;
    FILE *f;

    if (got <= 0)
        return 0;
    buf[got] = '\0';
    fields = sscanf((char *) buf, "%i %u %i %u", &v, &count, &ex, &after);
    state_path(path, sizeof(path), file);
    if (fields < 2 || count == 0 || v < 0 || v > 0xFF || ex < 0 || ex > 0xFF) {
        rmc_log("%s file ignored: [%s]", file, (char *) buf);
        unlink(path);
        return 0;
    }
    applies = (after == 0);
    if (applies)
        count--;
    else
        after--;
    if (count == 0) {
        unlink(path);
    } else {
        f = fopen(path, "w");
        if (f) {
            if (after > 0)
                fprintf(f, "%d %u %d %u\n", v, count, ex, after);
            else
                fprintf(f, "%d %u %d\n", v, count, ex);
            fclose(f);
        }
    }
    if (!applies)
        return 0;
    *value = (unsigned char) v;
    *extra = (unsigned char) ex;
    return 1;
}

/* Takes one refusal off the "inject" file. 1 when this chunk is refused. */
static int take_injection(unsigned char *status, unsigned char *exit_status)
{
    return take_counted("inject", status, exit_status);
}

/* Takes one off the "inject_cc" file: 1 when this command of net function
 * 0x3A is answered with that completion code alone. */
static int take_cc_injection(msg_t *msg, unsigned char *rdata, unsigned int *rdata_len)
{
    unsigned char cc, unused;

    if (!take_counted("inject_cc", &cc, &unused))
        return 0;
    rdata[0] = cc;
    *rdata_len = 1;
    rmc_log("0x%02x completion code 0x%02x injected", msg->cmd, cc);
    return 1;
}

static int store_command(const struct transfer *t, char *written, size_t written_size)
{
    char tmp[4096];
    char final_path[4096];
    uint32_t length = t->declared;
    FILE *f;
    int err = 0;

    if (length > 0 && t->payload[length - 1] == '\0')
        length--;
    rmc.last_file++;
    snprintf(written, written_size, "%06lu-%s.txt", rmc.last_file, t->command);
    snprintf(tmp, sizeof(tmp), "%s/.%s.tmp", rmc.dir, written);
    snprintf(final_path, sizeof(final_path), "%s/%s", rmc.dir, written);
    f = fopen(tmp, "wb");
    if (!f)
        return errno ? errno : EIO;
    if (length > 0 && fwrite(t->payload, 1, length, f) != length)
        err = errno ? errno : EIO;
    if (fclose(f) != 0 && !err)
        err = errno ? errno : EIO;
    if (!err && rename(tmp, final_path) != 0)
        err = errno ? errno : EIO;
    if (err)
        unlink(tmp);
    return err;
}

/* The transfer has all its bytes: carry the command out. */
static void complete_transfer(unsigned char *status, unsigned char *exit_status)
{
    char written[256];
    int err = store_command(&rmc.t, written, sizeof(written));

    if (err) {
        rmc_log("0x80 command %s could not be stored: %s", rmc.t.command, strerror(err));
        *status = TS_EXEC_FAILED;
        *exit_status = (unsigned char) err;
    } else {
        rmc_log("0x80 command %s complete: %u bytes in %u chunks -> %s", rmc.t.command,
                rmc.t.declared ? rmc.t.declared - 1 : 0, rmc.t.chunks, written);
    }
    drop_transfer();
}

static void first_chunk(const unsigned char *data, unsigned char *status, uint16_t *next,
                        unsigned char *exit_status)
{
    char name[NAME_FIELD_LENGTH + 1];
    unsigned int name_length = data[2];
    uint32_t declared;
    uint32_t limit;
    uint32_t take;
    int restarted = rmc.t.active;

    if (restarted) {
        rmc_log("0x80 new first chunk while %s was incomplete (%u of %u bytes); starting over",
                rmc.t.command, rmc.t.received, rmc.t.declared);
        drop_transfer();
    }

    if (name_length == 0 || name_length > NAME_FIELD_LENGTH)
        name_length = NAME_FIELD_LENGTH;
    memcpy(name, data + 3, NAME_FIELD_LENGTH);
    name[name_length] = '\0';
    declared = (uint32_t) data[23] | (uint32_t) data[24] << 8 | (uint32_t) data[25] << 16 |
               (uint32_t) data[26] << 24;

    if (!is_known_command(name)) {
        char shown[NAME_FIELD_LENGTH + 1];
        size_t i;

        for (i = 0; name[i]; i++)
            shown[i] = (name[i] >= 0x20 && name[i] < 0x7f) ? name[i] : '.';
        shown[i] = '\0';
        *status = TS_NOT_SUPPORTED;
        rmc_log("0x80 index=0x0000 status=%u next=0x0000 exit=0 unknown command name [%s]", *status, shown);
        return;
    }
    limit = max_length();
    if (declared > limit) {
        *status = TS_TOO_LONG;
        rmc_log("0x80 index=0x0000 status=%u next=0x0000 exit=0 command=%s length=%u above limit %u", *status,
                name, declared, limit);
        return;
    }

    rmc.transfers++;
    rmc.t.payload = malloc(declared ? declared : 1);
    if (!rmc.t.payload) {
        *status = TS_NO_MEMORY;
        rmc_log("0x80 index=0x0000 status=%u next=0x0000 exit=0 command=%s length=%u no memory", *status, name,
                declared);
        return;
    }
    rmc.t.active = 1;
    strcpy(rmc.t.command, name);
    rmc.t.declared = declared;
    rmc.t.chunks = 1;
    seed_transfer(&rmc.t);

    take = declared < FIRST_PAYLOAD_BYTES ? declared : FIRST_PAYLOAD_BYTES;
    memcpy(rmc.t.payload, data + FIRST_PAYLOAD_OFFSET, take);
    rmc.t.received = take;

    *status = restarted ? TS_INCOMPLETE : TS_OK;
    if (rmc.t.received >= rmc.t.declared) {
        rmc_log("0x80 index=0x0000 status=%u next=0x0000 exit=0 command=%s length=%u", *status, name, declared);
        complete_transfer(status, exit_status);
        return;
    }
    rmc.t.next_index = draw_index(&rmc.t);
    *next = rmc.t.next_index;
    rmc_log("0x80 index=0x0000 status=%u next=0x%04x exit=0 command=%s length=%u", *status, *next, name,
            declared);
}

static void following_chunk(uint16_t index, const unsigned char *data, unsigned char *status, uint16_t *next,
                            unsigned char *exit_status)
{
    uint32_t left;
    uint32_t take;

    if (!rmc.t.active || index != rmc.t.next_index) {
        *status = TS_BAD_INDEX;
        if (rmc.t.active)
            rmc_log("0x80 index=0x%04x status=%u next=0x0000 exit=0 expected index 0x%04x", index, *status,
                    rmc.t.next_index);
        else
            rmc_log("0x80 index=0x%04x status=%u next=0x0000 exit=0 no transfer in progress", index, *status);
        return;
    }
    if (data[2] != 0)
        rmc_log("0x80 index=0x%04x byte 2 is 0x%02x, not 0", index, data[2]);

    left = rmc.t.declared - rmc.t.received;
    take = left < NEXT_PAYLOAD_BYTES ? left : NEXT_PAYLOAD_BYTES;
    memcpy(rmc.t.payload + rmc.t.received, data + NEXT_PAYLOAD_OFFSET, take);
    rmc.t.received += take;
    rmc.t.chunks++;
    *status = TS_OK;

    if (rmc.t.received >= rmc.t.declared) {
        rmc_log("0x80 index=0x%04x status=0 next=0x0000 exit=0 command=%s", index, rmc.t.command);
        complete_transfer(status, exit_status);
        return;
    }
    rmc.t.next_index = draw_index(&rmc.t);
    *next = rmc.t.next_index;
    rmc_log("0x80 index=0x%04x status=0 next=0x%04x exit=0 command=%s", index, *next, rmc.t.command);
}

static void handle_cli_chunk(lmc_data_t *mc, msg_t *msg, unsigned char *rdata, unsigned int *rdata_len,
                             void *cb_data)
{
    unsigned char status = TS_OK;
    unsigned char exit_status = 0;
    uint16_t next = 0;
    uint16_t index;

    (void) mc;
    (void) cb_data;

    if (take_cc_injection(msg, rdata, rdata_len))
        return;
    if (msg->len != CHUNK_SIZE) {
        rmc_log("0x80 refused: %u data bytes instead of %d", msg->len, CHUNK_SIZE);
        rdata[0] = CC_REQUEST_LENGTH_INVALID;
        *rdata_len = 1;
        return;
    }
    index = (uint16_t) (msg->data[0] | msg->data[1] << 8);

    if (take_injection(&status, &exit_status)) {
        if (rmc.t.active) {
            rmc_log("0x80 transfer of %s abandoned by injected status", rmc.t.command);
            drop_transfer();
        }
        rmc_log("0x80 index=0x%04x status=%u next=0x0000 exit=%u injected", index, status, exit_status);
    } else if (index == 0) {
        first_chunk(msg->data, &status, &next, &exit_status);
    } else {
        following_chunk(index, msg->data, &status, &next, &exit_status);
    }

    rdata[0] = CC_OK;
    rdata[1] = status;
    rdata[2] = (unsigned char) (next & 0xFF);
    rdata[3] = (unsigned char) (next >> 8);
    rdata[4] = exit_status;
    *rdata_len = 5;
}

static void handle_doorbell(lmc_data_t *mc, msg_t *msg, unsigned char *rdata, unsigned int *rdata_len,
                            void *cb_data)
{
    char name[16];
    unsigned int capacity = *rdata_len;
    unsigned int level = (unsigned int) (msg->cmd - RMC_CMD_DOORBELL1) + 1;
    long got;

    (void) mc;
    (void) cb_data;

    if (take_cc_injection(msg, rdata, rdata_len))
        return;
    snprintf(name, sizeof(name), "doorbell%u", level);
    rdata[0] = CC_OK;
    got = capacity > 1 ? read_state_file(name, rdata + 1, capacity - 1) : -1;
    if (got < 0) {
        *rdata_len = 1;
        rmc_log("0x%02x doorbell %u: no file, empty answer", msg->cmd, level);
        return;
    }
    *rdata_len = 1 + (unsigned int) got;
    rmc_log("0x%02x doorbell %u: answered %ld bytes", msg->cmd, level, got);
}

/* A fixed-size answer: the state file's bytes over the defaults. */
static void answer_fixed(const char *file, const unsigned char *defaults, unsigned int size, msg_t *msg,
                         unsigned char *rdata, unsigned int *rdata_len)
{
    unsigned char answer[16];
    long got;

    memcpy(answer, defaults, size);
    got = read_state_file(file, answer, size);
    if (got >= 0 && (unsigned int) got < size)
        memset(answer + got, 0, size - (unsigned int) got);
    rdata[0] = CC_OK;
    memcpy(rdata + 1, answer, size);
    *rdata_len = 1 + size;
    rmc_log("0x%02x/0x%02x %s: answered %u bytes%s", msg->netfn, msg->cmd, file, size,
            got < 0 ? " (defaults)" : "");
}

static void handle_capabilities(lmc_data_t *mc, msg_t *msg, unsigned char *rdata, unsigned int *rdata_len,
                                void *cb_data)
{
    /* One request at a time, 64-byte buffers, 10 seconds, one retry. */
    static const unsigned char defaults[5] = {0x01, 0x40, 0x40, 0x0a, 0x01};

    (void) mc;
    (void) cb_data;
    answer_fixed("capabilities", defaults, sizeof(defaults), msg, rdata, rdata_len);
}

static void handle_partition_id(lmc_data_t *mc, msg_t *msg, unsigned char *rdata, unsigned int *rdata_len,
                                void *cb_data)
{
    static const unsigned char defaults[8] = {0x01, 0, 0, 0, 0, 0, 0, 0};

    (void) mc;
    (void) cb_data;
    answer_fixed("partition_id", defaults, sizeof(defaults), msg, rdata, rdata_len);
}

/* Files of earlier runs keep their numbers: go on after the highest. */
static void find_last_file(void)
{
    DIR *d = opendir(rmc.dir);
    struct dirent *e;

    rmc.last_file = 0;
    if (!d)
        return;
    while ((e = readdir(d)) != NULL) {
        char *end;
        unsigned long n = strtoul(e->d_name, &end, 10);

        if (end - e->d_name == 6 && *end == '-' && n > rmc.last_file)
            rmc.last_file = n;
    }
    closedir(d);
}

int ipmi_sim_module_print_version(sys_data_t *sys, const char *options)
{
    (void) sys;
    (void) options;
    printf("vek RMC emulator module 1.0\n");
    return 0;
}

int ipmi_sim_module_init(sys_data_t *sys, const char *options)
{
    struct stat st;
    unsigned char cmd;
    int rv;

    if (!options || !*options) {
        fprintf(stderr, "vekrmc: the state folder must be given as the module option\n");
        return EINVAL;
    }
    if (stat(options, &st) != 0 || !S_ISDIR(st.st_mode)) {
        fprintf(stderr, "vekrmc: state folder %s does not exist\n", options);
        return ENOENT;
    }
    rmc.dir = strdup(options);
    if (!rmc.dir)
        return ENOMEM;
    memset(&rmc.t, 0, sizeof(rmc.t));
    find_last_file();

    rv = ipmi_emu_register_cmd_handler(RMC_NETFN, RMC_CMD_CLI_CHUNK, handle_cli_chunk, sys);
    for (cmd = RMC_CMD_DOORBELL1; !rv && cmd <= RMC_CMD_DOORBELL3; cmd++)
        rv = ipmi_emu_register_cmd_handler(RMC_NETFN, cmd, handle_doorbell, sys);
    if (!rv)
        rv = ipmi_emu_register_cmd_handler(APP_NETFN, APP_CMD_GET_CAPABILITIES, handle_capabilities, sys);
    if (!rv)
        rv = ipmi_emu_register_cmd_handler(PARTITION_NETFN, PARTITION_CMD_GET_ID, handle_partition_id, sys);
    if (rv) {
        fprintf(stderr, "vekrmc: unable to register the RMC commands: %s\n", strerror(rv));
        return rv;
    }
    rmc_log("RMC emulator module started, state folder %s, next file %06lu", rmc.dir, rmc.last_file + 1);
    return 0;
}

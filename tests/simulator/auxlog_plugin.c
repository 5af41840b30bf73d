/*
 * A module for ipmi_sim (OpenIPMI's BMC simulator) that serves an OEM auxiliary log:
 *   Get Auxiliary Log Status (Storage, 0x5A) for the OEM1 log type, and
 *   the maker's auxiliary-log read (OEM group 0x2E, command 0x93).
 * Loaded from the LAN configuration with
 *   loadlib "/path/auxlog_plugin.so" "/path/entries"
 * where the entries file holds the maker's IANA enterprise number (decimal) on its first line and
 * then one entry a line: the record's bytes in hexadecimal, separated by blanks.
 */
#include <OpenIPMI/ipmi_msgbits.h>
#include <OpenIPMI/mcserv.h>
#include <OpenIPMI/msg.h>
#include <OpenIPMI/serv.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define MAX_ENTRIES 1024
#define MAX_ENTRY_LENGTH 2048
#define MAX_CHUNK 200 /* bytes of record per answer, below ipmi_sim's message size */

/* Completion codes (IPMI v2.0 table 5-2). */
#define CC_OK 0x00
#define CC_INVALID_COMMAND 0xC1
#define CC_LENGTH_INVALID 0xC7
#define CC_OUT_OF_RANGE 0xC9
#define CC_NOT_PRESENT 0xCB
#define CC_INVALID_FIELD 0xCC

#define READ_AUX_LOG 0x93
#define OEM1_LOG 0x01

static uint32_t enterprise;
static unsigned int entry_count;
static unsigned int entry_length[MAX_ENTRIES];
static unsigned char *entry_data[MAX_ENTRIES];

static int load_entries(const char *path)
{
    FILE *file = fopen(path, "r");
    char *line = NULL;
    size_t capacity = 0;
    int result = -1;

    if (!file)
        return -1;
    if (getline(&line, &capacity, file) < 0)
        goto out;
    enterprise = (uint32_t) strtoul(line, NULL, 10);
    while (entry_count < MAX_ENTRIES && getline(&line, &capacity, file) >= 0) {
        unsigned char *bytes = malloc(MAX_ENTRY_LENGTH);
        unsigned int length = 0;
        char *cursor = line, *end;

        if (!bytes)
            goto out;
        for (;;) {
            unsigned long value = strtoul(cursor, &end, 16);
            if (end == cursor || length == MAX_ENTRY_LENGTH)
                break;
            bytes[length++] = (unsigned char) value;
            cursor = end;
        }
        entry_data[entry_count] = bytes;
        entry_length[entry_count++] = length;
    }
    result = 0;
out:
    free(line);
    fclose(file);
    return result;
}

static void answer(unsigned char *rdata, unsigned int *rdata_len, unsigned char code)
{
    rdata[0] = code;
    *rdata_len = 1;
}

/* Response: time stamp of the last change (none kept), the enterprise number, the entry count. */
static void get_aux_log_status(lmc_data_t *mc, msg_t *msg, unsigned char *rdata,
                               unsigned int *rdata_len, void *cb_data)
{
    (void) mc;
    (void) cb_data;
    if (msg->len != 1) {
        answer(rdata, rdata_len, CC_LENGTH_INVALID);
        return;
    }
    if (msg->data[0] != OEM1_LOG) {
        answer(rdata, rdata_len, CC_INVALID_FIELD);
        return;
    }
    memset(rdata, 0, 10);
    rdata[5] = enterprise & 0xFF;
    rdata[6] = (enterprise >> 8) & 0xFF;
    rdata[7] = (enterprise >> 16) & 0xFF;
    rdata[8] = entry_count & 0xFF;
    rdata[9] = (entry_count >> 8) & 0xFF;
    *rdata_len = 10;
}

/*
 * Request (after the enterprise number, which ipmi_sim strips and puts back in front of the
 * response): entry number, offset, length, each 16 bits, least significant byte first. Length 0
 * asks for the entry's length; otherwise the answer is that part of the entry.
 */
static void read_aux_log(lmc_data_t *mc, msg_t *msg, unsigned char *rdata, unsigned int *rdata_len,
                         void *cb_data)
{
    unsigned int number, offset, length;

    (void) mc;
    (void) cb_data;
    if (msg->cmd != READ_AUX_LOG) {
        answer(rdata, rdata_len, CC_INVALID_COMMAND);
        return;
    }
    if (msg->len != 6) {
        answer(rdata, rdata_len, CC_LENGTH_INVALID);
        return;
    }
    number = msg->data[0] | msg->data[1] << 8;
    offset = msg->data[2] | msg->data[3] << 8;
    length = msg->data[4] | msg->data[5] << 8;
    if (number == 0 || number > entry_count) {
        answer(rdata, rdata_len, CC_NOT_PRESENT);
        return;
    }
    number--;
    rdata[0] = CC_OK;
    if (length == 0) {
        rdata[1] = entry_length[number] & 0xFF;
        rdata[2] = (entry_length[number] >> 8) & 0xFF;
        *rdata_len = 3;
        return;
    }
    if (offset > entry_length[number]) {
        answer(rdata, rdata_len, CC_OUT_OF_RANGE);
        return;
    }
    if (length > entry_length[number] - offset)
        length = entry_length[number] - offset;
    if (length > MAX_CHUNK)
        length = MAX_CHUNK;
    memcpy(rdata + 1, entry_data[number] + offset, length);
    *rdata_len = 1 + length;
}

int ipmi_sim_module_print_version(sys_data_t *sys, const char *options)
{
    (void) sys;
    (void) options;
    printf("auxiliary log module 1.0\n");
    return 0;
}

int ipmi_sim_module_init(sys_data_t *sys, const char *options)
{
    (void) sys;
    if (!options || load_entries(options) != 0) {
        fprintf(stderr, "auxiliary log module: cannot read entries from %s\n",
                options ? options : "(no file given)");
        return -1;
    }
    if (ipmi_emu_register_cmd_handler(IPMI_STORAGE_NETFN, 0x5A, get_aux_log_status, NULL) != 0)
        return -1;
    return ipmi_emu_register_iana_handler(enterprise, read_aux_log, NULL);
}

#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets that read lines of text:

  shell_line_fuzz       debug-shell lines: the datagram's length (u16), a 60-byte header
                        (the target fills it in), the line and its NUL
  simctl_fuzz           vornsim control requests, in the same form
  vornctl_grammar_fuzz  files of vornctl command lines, as they are

over the state the targets set up (ring 1 on Gi 0/1 and Gi 1/1, ring 2 on Gi 2/1 and Po 1;
a chassis of cards 0 and 1 with VLANs 10, 20-22 and 30 and port-channel 1).

Usage: fuzz/gen_line_corpora.py [CORPUS_DIR]   (default fuzz/corpus)
"""
import os
import struct

from seedfiles import corpus_dir, write_seeds

HEADER = 60

SHELL = {
    "help": "vornHelp",
    "ring_all": "vornPrintRing 0",
    "ring_one": "vornPrintSingleRing 2",
    "vlan_all_bitmaps": "vornPrintVlan 0 1",
    "vlan_one": "vornPrintSingleVlan 20 1",
    "port": "vornPrintPort 0 1 1",
    "port_last": "vornPrintPort 11 63 1",
    "port_wide": "vornPrintPort -1 0x7fffffff 1",
    "lag": "vornPrintLag 1 1",
    "port_by_number": "vornPrintPortByPortnum 322 1",
    "port_by_number_high": "vornPrintPortByPortnum 65535",
    "ring_bitmap": "vornPrintRingBmap 130",
    "port_bitmap_tagged": "vornPrintPortBmap 10 1",
    "vlan_bitmap_all": "vornPrintVlanBmap 0",
    "mac": "vornPrintMacAddr 130",
    "oper_status": "vornGetOperStatus 1",
    "debug_db": "vornPrintDbgDB 1",
    "tcb": "vornPrintTcb",
    "counters": "vornPrintCounters",
    "clear_counters": "vornClearCounters",
    "errs": "vornPrintErrs",
    "ipc_header": "vornPrintIpcHdr",
    "lc_types": "vornPrintLcTypeInfo",
    "mem": "qelMemShow",
    "ipc_stats": "qelIpcStats",
    "set_global": "vornDbgPrint = 1",
    "set_global_hex": "vornDbgPrint=0x10",
    "show_global": "vornErrPrint",
    "set_negative": "gHalVornForcePortOwnerShip = -1",
    "set_too_big": "vornDbgPrint = 4294967296",
    "set_no_value": "vornMsgPrint =",
    "word_argument": "vornPrintRing abc",
    "unknown": "nosuchfunction 1 2",
    "blank": "   \t ",
    "after_nul": "vornPrintRing 1\0vornPrintRing 2",
}

SIM = {
    "help": "help",
    "status": "status",
    "chassis": "show chassis",
    "chassis_json": "show chassis --json",
    "chassis_port": "show chassis port Gi 0/1",
    "chassis_vlan_json": "show chassis vlan 10 --json",
    "chassis_lag": "show chassis lag 1",
    "l2pm": "show l2pm",
    "l2pm_port": "show l2pm port gi0/1",
    "l2pm_vlan": "show l2pm vlan 20",
    "l2pm_instance": "show l2pm instance 1",
    "ifm_vlan": "show ifm vlan 10",
    "agents_json": "show agents --json",
    "card_up": "card up 3",
    "card_down": "card down 1",
    "card_shutdown": "card shutdown 0",
    "card_bad_slot": "card up 12",
    "port_up": "port Gi 0/2 up",
    "port_te_down": "port TenGigabitEthernet 1/1 down",
    "vlan_add_lag": "vlan 40-45,50 add Po 1 tagged",
    "vlan_remove_port": "vlan 10 remove Gi 0/1",
    "vlan_bad_list": "vlan 4095-10 add Gi 0/1 tagged",
    "no_vlan": "no vlan 20-22",
    "lag_add": "lag 2 add Gi 0/3",
    "lag_remove": "lag 1 remove Gi 1/2",
    "no_lag": "no lag 1",
    "ifm_refuse": "ifm refuse-vlan 10 code 0x8a000141",
    "ifm_accept": "no ifm refuse-vlan 10",
    "l2pm_refuse_port": "l2pm refuse-port Po 1",
    "evh_absent": "evh absent on",
    "l2pm_refuse": "l2pm refuse on",
    "manager_start": "manager start",
    "json_not_show": "status --json",
    "incomplete": "show",
    "control_chars": "card\x1bup 3",
    "too_long": "x" * 1100,
}

VORNCTL = {
    "ring_full": "protocol vorn 5\n"
                 "interface primary Gi 0/1 secondary Gi 1/1 control-vlan 10\n"
                 "member-vlan 20-30,40\nmode master\ntimer hello-interval 500\n"
                 "timer dead-interval 1500\ndescription core ring east\nno disable\nexit\n",
    "ring_on_one_line": "protocol vorn 6 interface primary po5 secondary te1/2 control-vlan 11\n",
    "ring_removal": "protocol vorn 5\nno member-vlan 20-25\nno mode master\nno description\n"
                    "no interface primary GigabitEthernet 0/1 secondary Gi 1/1 control-vlan 10\n"
                    "end\nno protocol vorn 5\n",
    "show": "show vorn ring\nshow vorn ring 5 summary\nshow debugging\nshow running-config\n",
    "debug": "debug vorn ring 5 event\ndebug vorn ring 5 packet rx\nundebug all\n",
    "clear": "clear vorn counters\nclear vorn counters ring 7\n",
    "help_marks": "protocol vorn ?\nsh?\ninterface primary Gi 0/1 sec?\n",
    "shell_sim": "shell vornPrintRing 5\nsim vlan 10 add Gi 0/1 tagged\nwrite memory\nhelp\n",
    "comments": "! saved configuration\n\n   \nprotocol vorn 255\n",
    "bad_values": "protocol vorn 256\nmember-vlan 4096\ntimer hello-interval 49\n",
    "prefixes": "pro vo 7\nint pri gi0/1 sec gi1/1 con 10\nmem 1-4094\n",
}


def request(text):
    body = text.encode("latin-1") + b"\0"
    return struct.pack(">H", HEADER + len(body)) + bytes(HEADER) + body


def main():
    out = corpus_dir("")
    shell = {name: request(text) for name, text in SHELL.items()}
    sim = {name: request(text) for name, text in SIM.items()}
    sim["unterminated"] = request("status")[:-1]
    vornctl = {name: text.encode() for name, text in VORNCTL.items()}
    for target, seeds in (("shell_line_fuzz", shell), ("simctl_fuzz", sim),
                          ("vornctl_grammar_fuzz", vornctl)):
        write_seeds(os.path.join(out, target), seeds)


if __name__ == "__main__":
    main()

#!/usr/bin/env bash
# Prints the message table of an executable, read back from its resources:
# "ID: TEXT" a line, with the encoding of each entry. Usage: tools/message_table.sh EXECUTABLE
set -euo pipefail

x86_64-w64-mingw32-windres -O rc -i "$1" | perl -e '
    local $/;
    my $rc = <STDIN>;
    $rc =~ /RT_MESSAGETABLE \*\/\s*BEGIN(.*?)\/\*/s or die "the message table has no data\n";
    my $table = pack "V*", map { hex } $1 =~ /0x([0-9a-f]+)L/g;
    my ($blocks, @ranges) = unpack "V(V3)*", substr $table, 0, 4 + 12 * unpack "V", $table;
    for (1 .. $blocks) {
        my ($first, $last, $at) = splice @ranges, 0, 3;
        for my $id ($first .. $last) {
            my ($size, $flags) = unpack "vv", substr $table, $at, 4;
            my $text = substr $table, $at + 4, $size - 4;
            $text =~ s/\0//g;
            $text =~ s/\r/\\r/g;
            $text =~ s/\n/\\n/g;
            printf "%d: %s (%s)\n", $id, $text, $flags ? "16-bit" : "8-bit";
            $at += $size;
        }
    }'

#!/usr/bin/env perl
# Sets the identifier of a compiled type library to that of its description: widl writes a wrong
# last byte if a dispatch interface stands before every other interface. Sets its time, as text and as a
# number, to SOURCE_DATE_EPOCH or 0, so that two builds are the same bytes. Gives a second reference to
# IDispatch its identifier: widl leaves it out, and a client that calls through the slots of a dual interface
# then gets no proxy. Usage: tools/library_id.pl TLB IDL
use strict;
use warnings;

use POSIX qw(strftime);

my ($library, $description) = @ARGV;

sub slurp {
    my ($path) = @_;
    open my $file, "<:raw", $path or die "$path: $!\n";
    local $/;
    return <$file>;
}

# The first identifier of a description is the library's.
slurp($description) =~ /uuid\((\w{8})-(\w{4})-(\w{4})-(\w{4})-(\w{12})\)/
    or die "$description: no identifier\n";
my $id = pack "V v v H4 H12", hex $1, hex $2, hex $3, $4, $5;
my $bytes = slurp($library);
my $begin = quotemeta substr $id, 0, 15;
my $found = () = $bytes =~ /$begin/gs;
die "$library: the identifier is there $found times\n" unless $found == 1;
$bytes =~ s/$begin./$id/s;

my $time = $ENV{SOURCE_DATE_EPOCH} // 0;
my $text = strftime "%a %b %e %H:%M:%S %Y", gmtime $time;
# The number follows as a variant of type 19 (VT_UI4), between marks of widl's.
$bytes =~ s/( at )[ -~]{24}(\nW{0,3}\x13\0)..../$1 . $text . $2 . pack "V", $time/se
    or die "$library: the time of its making is not where it was\n";
# The table of segments follows the header and the places of the types. Its second segment has the types of
# other libraries, twelve bytes each, that end with the place of an identifier; the sixth has those.
my $table = 0x54 + (unpack('x20 V', $bytes) & 0x100 ? 4 : 0) + 4 * unpack('x32 V', $bytes);
my ($references, $size) = unpack "x$table x16 V V", $bytes;
my ($ids) = unpack "x$table x80 V", $bytes;
my $dispatch = unpack 'x8 V', substr $bytes, $references, 12;
die "$library: the first type of another library is not IDispatch\n"
    unless substr($bytes, $ids + $dispatch, 16) eq pack 'V v v H16', 0x20400, 0, 0, 'c000000000000046';
for (my $at = $references; $at < $references + $size; $at += 12) {
    substr($bytes, $at + 8, 4) = pack 'V', $dispatch if unpack('V', substr $bytes, $at + 8, 4) == 0xFFFFFFFF;
}
open my $file, ">:raw", $library or die "$library: $!\n";
print $file $bytes;
close $file or die "$library: $!\n";

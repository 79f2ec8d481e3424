#!/usr/bin/env perl
# Checks the includes between folders: no circle, no file of the virtual PC in the service or of the
# service in the virtual PC, and no service file that tests for the platform it is compiled for.
# Usage: check_rooms.pl ROOT. Prints the faults, and then exits with 1.
use strict;
use warnings;

my $root = shift or die "usage: check_rooms.pl ROOT\n";
my @service = qw(service settings state power audio api log process);
my @others = qw(platform platform/virtual pc);
my %is_service = map { $_ => 1 } @service;

# Units that stand lower than their folder, because two folders that would otherwise include each
# other need them.
my %small = map { $_ => 1 } qw(settings/settings service/service_status
                               state/never_sleep_state state/owned_object);

# The unit of a file: its folder, unless it is one of these.
sub room_of {
    my ($stem) = $_[0] =~ /^(.*)\.(?:h|cpp)$/;
    return $small{$stem} ? $stem : $stem =~ s{/[^/]*$}{}r;
}

my @faults;
my %includes;  # room => room => the place of the first such line
for my $folder (@service, @others) {
    for my $path (sort glob "$root/$folder/*.h $root/$folder/*.cpp") {
        my $file = substr $path, length "$root/";
        my $room = room_of($file);
        open my $source, '<', $path or die "$path: $!\n";
        while (my $line = <$source>) {
            if ($is_service{$folder} && $line =~ /^\s*#\s*(?:el)?if.*\b_WIN32\b/) {
                push @faults, "$file:$. asks what it is built for";
            }
            my ($included) = $line =~ /^\s*#\s*include\s+"([^"]+)"/ or next;
            my $other = room_of($included);
            $includes{$room}{$other} //= "$file:$." if $other ne $room;
            my ($floor) = $other =~ m{^([^/]+)};
            if ($is_service{$folder} && $other =~ m{^(?:platform/virtual|pc|tests)$}) {
                push @faults, "$file:$. includes $included: the service knows no $other";
            }
            if ($folder =~ /^platform/ && ($is_service{$floor} || $floor eq 'pc')) {
                push @faults, "$file:$. includes $included: $folder knows no $floor";
            }
        }
    }
}

# Follows the includes of the last unit in @way. A unit that is already in @way closes a circle.
my %done;
sub walk {
    my @way = @_;
    for my $next (sort keys %{$includes{$way[-1]} // {}}) {
        my ($from) = grep { $way[$_] eq $next } 0 .. $#way;
        if (defined $from) {
            my @circle = (@way[$from .. $#way], $next);
            push @faults, join "\n    ", 'a circle:',
                map { "$circle[$_] includes $circle[$_ + 1] at "
                      . $includes{$circle[$_]}{$circle[$_ + 1]} } 0 .. $#circle - 1;
        } elsif (!$done{$next}) {
            walk(@way, $next);
        }
    }
    $done{$way[-1]} = 1;
}
$done{$_} || walk($_) for sort keys %includes;

print "$_\n" for @faults;
exit(@faults ? 1 : 0);

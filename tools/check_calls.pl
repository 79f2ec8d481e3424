#!/usr/bin/env perl
# Holds the table of calls in docs/windows.md against what the platform headers declare: each function
# that the service may call has its row, and no other has one. Usage: tools/check_calls.pl [TRACE]
# With a relay trace of a run under Wine, what it calls must be claimed as called there, and what is
# claimed must be in it. `--list` prints the functions instead.
use strict;
use warnings;
use File::Basename;

my $root = dirname(__FILE__) . "/..";

sub slurp {
    my ($path) = @_;
    open my $file, "<", $path or die "$path: $!\n";
    local $/;
    return <$file>;
}

my %declared;
for my $header (glob "$root/platform/*.h") {
    my $text = slurp($header);
    $text =~ s{//.*}{}g;
    my $name = basename($header);
    $declared{$1} = $name while $text =~ /\b(?:WINAPI|WINAPIV|APIENTRY|CALLBACK)\s+(\w+)\s*\(/g;
}

if (@ARGV and $ARGV[0] eq "--list") {
    print "$_\n" for sort keys %declared;
    exit 0;
}

# Rows like | `SetEvent`, `ResetEvent` | Wine | why |
my %claimed;
for (split /\n/, slurp("$root/docs/windows.md")) {
    next unless /^\| (`\w+`(?:, `\w+`)*) \| (Wine|stand-in|unproven) \|/;
    my ($functions, $claim) = ($1, $2);
    for my $function ($functions =~ /\w+/g) {
        die "docs/windows.md: $function has two rows\n" if $claimed{$function};
        $claimed{$function} = $claim;
    }
}

my @wrong;
for (sort keys %declared) {
    push @wrong, "$_ ($declared{$_}) has no row" unless $claimed{$_};
}
for (sort keys %claimed) {
    push @wrong, "$_ has a row, but no header declares it" unless $declared{$_};
}

if (@ARGV) {
    my %called;
    open my $trace, "<", $ARGV[0] or die "$ARGV[0]: $!\n";
    while (<$trace>) { $called{$1} = 1 if /Call \w+\.(\w+)\(/; }
    for (sort keys %declared) {
        next unless $claimed{$_};
        push @wrong, "$_ is said to be called under Wine, and is not"
            if $claimed{$_} eq "Wine" and not $called{$_};
        push @wrong, "$_ is called under Wine, and said to be unproven"
            if $claimed{$_} eq "unproven" and $called{$_};
    }
}

print "docs/windows.md: $_\n" for @wrong;
exit(@wrong ? 1 : 0);

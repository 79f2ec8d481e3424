# The page of events lists every message of the event log that the service's source has, and no others.
use strict;
use warnings;
use Messages;

sub messages {
    my ($tree) = @_;
    my @found;
    my $logged = Messages::logged($tree);
    my @groups = Messages::parse($tree->text($Messages::table));
    my %explained;
    for my $group (@groups) {
        for my $message (@{$group->{messages}}) {
            push @found, [$Messages::table, $group->{line}, "\"$message\" is there twice"] if $explained{$message}++;
            push @found, [$Messages::table, $group->{line}, "the service does not log \"$message\"; remove it"]
                unless $logged->{$message};
        }
    }
    push @found, [@{$logged->{$_}}, "\"$_\" goes to the event log; say in $Messages::table what it means"]
        for grep { not $explained{$_} } sort keys %$logged;
    push @found, [$Messages::page, 1, "is not what $Messages::table makes; run tools/messages_page"]
        if $tree->text($Messages::page) ne Messages::page_of(@groups);
    return @found;
}

(
    {
        name => 'messages',
        says => 'the page of events lists every message of the event log with its meaning',
        check => \&messages,
        planted => {
            'log/m.cpp' => qq|Row rows[] = {{stop, 1, L"Stop", 0}};\nvoid F()\n{\n    Log(3, kF, L"Failed, "\n        L"e=%d\\n", 5);\n|
                . qq|    Log(4, L"F", L"Known");\n    Log(6, L"F", L"Detail");\n    Log(row.level, L"F", L"Any %s", 0);\n}\n|,
            'tools/messages.txt' => "# A table.\n4 | Known\n    Known.\n1 | Old\n4 | Known\n    Gone.\n",
        },
        found => [
            'log/m.cpp:1: "1 | Stop" goes to the event log; say in tools/messages.txt what it means',
            'log/m.cpp:4: "3 | Failed, e=%d" goes to the event log; say in tools/messages.txt what it means',
            'log/m.cpp:8: "? | Any %s" goes to the event log; say in tools/messages.txt what it means',
            'package/events.md:1: is not what tools/messages.txt makes; run tools/messages_page',
            'tools/messages.txt:4: "4 | Known" is there twice',
            'tools/messages.txt:4: the service does not log "1 | Old"; remove it',
        ],
    },
)

# The messages of the event log: those that the service logs at the levels 1, 3 and 4, from its source, and
# what they mean, from tools/messages.txt. Used by tools/messages_page and by the rule of messages.
package Messages;
use strict;
use warnings;

our $table = 'tools/messages.txt';
our $page = 'package/events.md';

# A level of the table, and its name on the page. The level ? is one that the code computes.
my %levels = (1 => 'information', 3 => 'error', 4 => 'warning', '?' => 'error or warning');

my $literal = qr/L"(?:\\.|[^"\\\n])*"/;

sub join_literals { return join('', $_[0] =~ /L"((?:\\.|[^"\\\n])*)"/g) =~ s/\\n$//r =~ s/\s+$//r }

# The messages of the source: "LEVEL | TEXT" => [file, line] of the first place.
sub logged {
    my ($tree) = @_;
    my %logged;
    for my $file ($tree->files(qr{$Tree::service.*\.cpp$})) {
        my $code = $tree->code_with_strings($file);
        while ($code =~ /\bLog\(\s*([\w.>-]+)\s*,\s*(?:$literal|[\w.()]+)\s*,\s*((?:$literal\s*)+)/g) {
            my ($level, $text, $at) = ($1, join_literals($2), $-[0]);
            next if $level =~ /^[256]$/ or $level !~ /^\d/ and $text =~ /^(?:%s)+$/;
            $level = '?' if $level !~ /^\d/;
            $logged{"$level | $text"} //= [$file, Tree::line_of($code, $at)];
        }
        # The rows of tables with a level and a line.
        while ($code =~ /[\w},]\s*,\s*([134])\s*,\s*($literal)\s*,/g) {
            my ($level, $text, $at) = ($1, join_literals($2), $-[0]);
            $logged{"$level | $text"} //= [$file, Tree::line_of($code, $at)];
        }
    }
    return \%logged;
}

# The table's groups of messages with one meaning: [{messages => ["LEVEL | TEXT"...], meaning, line}...].
sub parse {
    my ($text) = @_;
    my (@groups, $line);
    for (split /\n/, $text) {
        ++$line;
        next if /^(?:#|\s*$)/;
        if (/^\s+(\S.*)/ and @groups and not defined $groups[-1]{meaning}) { $groups[-1]{meaning} = $1; next }
        /^[134?] \| \S/ or die "$table:$line: neither LEVEL | MESSAGE nor the meaning of those above\n";
        push @groups, {messages => [], line => $line} if not @groups or defined $groups[-1]{meaning};
        push @{$groups[-1]{messages}}, $_;
    }
    die "$table:$line: the last messages have no meaning\n" if @groups and not defined $groups[-1]{meaning};
    return @groups;
}

sub row {
    my ($group) = @_;
    my @texts = map { s/^. \| //r } @{$group->{messages}};
    my %names = map { $levels{substr $_, 0, 1} => 1 } @{$group->{messages}};
    return '| ' . join(', ', sort keys %names) . ' | ' . join('<br>', map { "`$_`" } @texts) . " | $group->{meaning} |\n";
}

sub page_of {
    my @groups = @_;
    return <<'HEAD' . join('', map { row($_) } @groups) . <<'QUERIES';
# Orbeq(R) Holv Technology: events

All of these have the source `Orbeq( R ) HOLV`, the category 1 and the event id 2000 in the Application event log.
An event's text is `HOLV - `, the name of the operation, three blanks, and one of these messages. `%s`, `%d`,
`%p` and `%x` stand for texts and numbers; a number after `GLE`, `error` or `status` is a Windows error code, one
after `hr` an HRESULT. Which of them are logged depends on the settings `LoggingLevel` and `LoggingEnabled`.

| level | message | meaning, and what to do |
|---|---|---|
HEAD

## Queries for one message

Windows' queries compare the whole text of an event, and know no part of it. For a message without values that is
enough; take the whole text from an event that has it:

    wevtutil qe Application /q:"*[System[Provider[@Name='Orbeq( R ) HOLV']] and EventData[Data='HOLV - wWinMain   Platform not Supported']]" /f:text

For an event subscription or a custom view (its tab XML):

    <QueryList><Query Id="0" Path="Application"><Select Path="Application">
      *[System[Provider[@Name='Orbeq( R ) HOLV']] and EventData[Data='HOLV - wWinMain   Platform not Supported']]
    </Select></Query></QueryList>

A message with values is found by a part of it, among the events of its level (0 or 4 information, 2 error,
3 warning):

    wevtutil qe Application /q:"*[System[Provider[@Name='Orbeq( R ) HOLV'] and (Level=2)]]" /f:text | findstr /c:"PowerSetActiveScheme failed"
    powershell "Get-WinEvent -FilterHashtable @{LogName='Application'; ProviderName='Orbeq( R ) HOLV'; Level=2} | Where-Object Message -like '*PowerSetActiveScheme failed*'"

A subscription for such a message collects the events of its level; filter by the text where they are collected.
QUERIES
}

1;

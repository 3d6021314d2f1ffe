# What the public headers declare and say: functions, globals, types and macros with their comments.
package Headers;
use strict;
use warnings;
use Exporter 'import';
our @EXPORT_OK = qw(read_header);

# A comment's text: without its marks, a line for each of its lines.
sub comment_text {
  my ($comment) = @_;
  $comment =~ s{^/\*\s*|\s*\*/$}{}g;
  return $comment =~ s{^ *\*? ?}{}gmr;
}

sub declaration {
  my ($text) = @_;
  if ($text =~ s/^ZOR_API\s+//) {
    my $shown = $text =~ s/\s*(?:ZOR_PRINTF\([^)]*\)|__attribute__\(\(.*\)\))\s*;$/;/sr =~ s/\s*ZOR_DEFAULT\([^)]*\)//r;
    $shown =~ s/\s+/ /g;
    return {kind => 'Va', name => $1, type => "extern $2", text => $shown}
      if $shown =~ /^extern (?=.*?(\w+)(?:\[\d+\])?;$)(.*?)\w+(?:\[\d+\])?;$/;
    $shown =~ /^(.*?)(\w+)\((.*)\);$/ or die "no declaration: $shown\n";
    my ($type, $name, $list) = ($1, $2, $3);
    my @parameters = $list eq 'void' ? () : split /, */, $list;
    return {kind => 'Fn', name => $name, type => $type =~ s/ $//r, parameters => \@parameters, text => $shown};
  }
  return {kind => 'Vt', name => $1, text => $text} if $text =~ /^typedef [^{]*?\(\*(\w+)\)\(/s;
  return {kind => 'Vt', name => $1, text => $text} if $text =~ /^typedef .*?(\w+);$/s;
  return;
}

# Reads a header: its opening comment, and its items in their order. An item has kind (Fn, Va, Vt, Dv), name, text, doc
# (its comment), group (what shares that comment), said (the comment before the group, where items have comments of their
# own beside them) and section (the comments that stand alone before it).
sub read_header {
  my ($path, $name) = @_;
  open my $in, '<', $path or die "$path: $!\n";
  local $/;
  my $text = <$in>;
  my %header = (name => $name, items => [], opening => '');
  $header{opening} = comment_text($1) if $text =~ s{^(/\*.*?\*/)\n}{}s;
  my ($doc, @section, $group, $before);
  while ($text =~ m{\G(?:
      (?<comment>/\*.*?\*/)\n(?<alone>\n)?
      | \#define\ (?<macro>\w+)\ +(?<value>\S[^\n]*?)(?:\ +(?<beside>/\*.*?\*/))?\n
      | (?<blank>\n)
      | (?:\#(?:[^\n]*\\\n)*[^\n]*|ZOR_(?:BEGIN|END)_DECLS|struct\ \w+;|extern[^\n]*|\})\n
      | (?<code>(?:[^;\{]|(?<braces>\{(?:[^\{\}]|(?&braces))*\}))*;)(?:\ +(?<after>/\*.*?\*/))?\n
    )}gcxs) {
    my %found = %+;
    if (defined $found{comment} && $found{alone}) {
      my $said = comment_text($found{comment});
      my ($title) = $said =~ /^(.*?)[.:]/s;
      @section = () if defined $title && length $title <= 40;
      push @section, $said;
      undef $doc;
    } elsif (defined $found{comment}) {
      ($doc, $group) = (comment_text($found{comment}), []);
      $before = $doc;
    } elsif (defined $found{blank}) {
      ($doc, $group, $before) = (undef, undef, undef);
    } else {
      my $item = defined $found{macro} ? {kind => 'Dv', name => $found{macro}, value => $found{value}}
        : defined $found{code} ? declaration($found{code}) : undef;
      next unless $item;
      my $beside = $found{beside} // $found{after};
      $item->{doc} = defined $beside ? comment_text($beside) : $doc;
      $item->{said} = $before;
      $item->{section} = [@section];
      $item->{header} = $name;
      $group //= [];
      push @$group, $item;
      $item->{group} = $group;
      push @{$header{items}}, $item;
    }
  }
  my $at = pos($text) // 0;
  $at == length $text or die "$path: cannot be read at: " . substr($text, $at, 80) . "\n";
  return \%header;
}

1;

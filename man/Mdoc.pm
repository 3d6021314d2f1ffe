# Prose as mdoc(7) source.
package Mdoc;
use strict;
use warnings;
use Exporter 'import';
our @EXPORT_OK = qw(sentences text_lines argument literal value sentence constant_list);

# Words by which text_lines marks up: kind of each known name ("Fn", "Dv", "Vt", "Va").
our %kinds;

# Escapes what roff would not print unchanged.
sub escape {
  my ($text) = @_;
  $text =~ s/\\/\\e/g;
  $text =~ s/(?<![\w-])-(?=\d)/\\-/g;
  return $text;
}

# An argument of a macro: one word, and none that is taken for a macro.
sub argument {
  my ($text) = @_;
  $text = escape($text) =~ s/"/\\(dq/gr;
  $text = "\\&$text" if $text =~ /^[A-Z][a-z][a-z]?$/ || $text =~ /^[.,:;()\[\]?!|]$/;
  return $text =~ /\s/ ? qq("$text") : $text;
}

# Code, unchanged.
sub literal {
  my ($text) = @_;
  return ('.Bd -literal -offset indent', (map { (my $line = escape($_)) =~ s/^(?=[.'])/\\&/; $line } split /\n/, $text), '.Ed');
}

# Splits a paragraph at the ends of its sentences, but never inside quotes.
sub sentences {
  my ($text) = @_;
  $text =~ s/("[^"]*")/$1 =~ tr, ,\x01,r/ge;
  return map { tr/\x01/ /r } split /(?<=[.?!])\s+(?=[A-Z*"\d(])/, $text;
}

# The lines of a paragraph, each sentence on a new one. $self the functions that the page is about, $parameters its
# parameters' names.
sub text_lines {
  my ($text, $self, $parameters) = @_;
  my @lines;
  for my $sentence (sentences($text)) {
    $sentence =~ s/("[^"]*")/$1 =~ tr, ,\x01,r/ge;
    my @words;
    my $flush = sub {
      while (@words) {
        my $line = shift @words;
        $line .= ' ' . shift @words while @words && length($line) + length($words[0]) < 79;
        $line = escape($line =~ tr/\x01/ /r);
        push @lines, $line =~ /^[.']/ ? "\\&$line" : $line;
      }
    };
    for my $word (split / +/, $sentence) {
      my ($before, $core, $after) = $word =~ /^(\(?)(\w+\(\)|.*?)([.,;:)?!]*)$/;
      my $macro =
          $core =~ /^(\w+)\(\)$/ ? "Fn $1"
        : $core =~ /^<(zor\/[\w\/]+\.h)>$/ ? "In $1"
        : $core =~ /^\*?(\w+)$/ && $parameters->{$1} && ($core =~ /^\*/ || $core =~ /[a-z][A-Z]/) ? "Fa $core"
        : !defined $kinds{$core} ? undef
        : $kinds{$core} eq 'Fn' ? ($self->{$core} ? "Fn $core" : "Xr $core 3")
        : "$kinds{$core} $core";
      if (!defined $macro) {
        push @words, $word;
        next;
      }
      $flush->();
      $macro =~ s/^(\w+) /$1 ( / if $before;
      push @lines, '.' . join(' ', $macro, split //, $after);
    }
    $flush->();
  }
  return @lines;
}

# A constant's value without what only compilers need.
sub value {
  my ($text) = @_;
  return $text =~ s/UINT32_C\(([^)]*)\)/$1/gr =~ s/\b(0x[0-9a-fA-F]+|\d+)[uUlL]+\b/$1/gr;
}

# A comment beside a declaration as a sentence of its own.
sub sentence {
  my ($doc) = @_;
  my $text = ($doc =~ s/\s+/ /gr) =~ s/([^.])$/$1./r;
  return $text =~ /^\w+\(/ ? $text : ucfirst $text;
}

# A group of constants: the comment before it, then each with its value and the comment beside it.
sub constant_list {
  my ($constants, @context) = @_;
  my $said = ($constants->[0]{said} // '') =~ s/\s*\bUsed with\s+[\w\s,]+\.$//r;
  my @lines = $said ? text_lines(sentence($said), @context) : ();
  push @lines, '.Bl -tag -width Ds -compact';
  for (@$constants) {
    push @lines, ".It Dv $_->{name} " . argument('(' . value($_->{value}) . ')');
    push @lines, text_lines(sentence($_->{doc}), @context) if $_->{doc} && $_->{doc} ne ($_->{said} // '');
  }
  return (@lines, '.El');
}

1;

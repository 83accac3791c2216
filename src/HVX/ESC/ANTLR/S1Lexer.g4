// Lexer of S1, the template language of SCPI commands. Token numbers follow
// the rule order and are what the compiler maps to opcodes: never reorder.
lexer grammar S1Lexer;

// Outer text, sent to the instrument as it stands.
DIRECTIVE: '@';
TEXT: OUTER_ANY_CHAR+;
BEGIN_EVAL: '{' -> pushMode(MODE_EVAL_BLOCK);

// Inside braces: one expression or assignment.
mode MODE_EVAL_BLOCK;

// Kept so the lexer tracks nesting; the parser takes no nested block.
BEGIN_EVAL_2: '{' -> pushMode(MODE_EVAL_BLOCK);
END_EVAL: '}' -> popMode;

STRING
    : '"' (~'"' | '\\' .)* '"'
    | '\'' (~'\'' | '\\' .)* '\''
    ;

KW_HZ: [hH] [zZ];
KW_KHZ: [kK] [hH] [zZ];
KW_MHZ: [mM] [hH] [zZ];
KW_GHZ: [gG] [hH] [zZ];

FLOAT: DIGIT* '.' DIGIT+;
INT: [1-9] DIGIT* | '0';
// Lexed but taken by no parser rule: the language has no such literals.
HEX: '0' [xX] HEX_DIGIT*;
OCT: '0' DIGIT*;

OPEN_PAREN: '(';
CLOSE_PAREN: ')';
COMMA: ',';

IDIV: '//';
DIV: '/';
MUL: '*';
ADD: '+';
SUB: '-';

NEQ: '!=';
ASSIGN: ':=';
EQ: '=';
GT: '>';
GTE: '>=';
LT: '<';
LTE: '<=';

// The word forms are case-sensitive on purpose; unit words are not.
NOT: '!' | 'not' | 'NOT';
AND: '&&' | 'AND' | 'and';
OR: '||' | 'OR' | 'or';
XOR: 'XOR' | 'xor';

BAND: '&';
BOR: '|';
BXOR: '^';

ID: ID_START ID_CHAR*;

WS: [ \t\r\n]+ -> skip;

fragment ID_START: [A-Za-z_];
fragment ID_CHAR: [0-9A-Za-z_];
fragment DIGIT: [0-9];
fragment HEX_DIGIT: [0-9A-Fa-f];
// Printable ASCII except '@', '{', '}' and DEL; a backslash pair carries any
// character into the text and stays in it.
fragment OUTER_ANY_CHAR
    : [\u0020-\u003F\u0041-\u007A\u007C\u007E]
    | '\\' .
    ;

// RS-274X subset read by the board overlay. Rule order fixes the token numbers
// and settles ambiguities; keep it as it is.
lexer grammar GerberLexer;

MO : '%MO' ('MM' | 'IN') '*%';
FS : '%FSLAX' DIGIT DIGIT 'Y' DIGIT DIGIT '*%';
AD : '%AD' -> pushMode(MODE_AD);
AM : '%AM' -> pushMode(MODE_AM);
D01 : 'D01*';
D02 : 'D02*';
D03 : 'D03*';
DCODE : 'D' '0'* POSITIVE_DIGIT DIGIT*;
G01 : 'G01*';
G02 : 'G02*';
G03 : 'G03*';
G04 : 'G04' ANY* '*';
G75 : 'G75*';
G36 : 'G36*';
G37 : 'G37*';
LP : '%LP' [CD] '*%';
LM : '%LM' ('N' | 'XY' | [XY]) '*%';
LR : '%LR' -> pushMode(COMMAND);
LS : '%LS' -> pushMode(COMMAND);
AB : '%AB';
SR : '%SR' -> pushMode(COORD);
TF : '%TF' -> pushMode(TX);
TA : '%TA' -> pushMode(TX);
TO : '%TO' -> pushMode(TX);
TD : '%TD' -> pushMode(TX);
M02 : 'M02*';
X : 'X';
Y : 'Y';
I : 'I';
J : 'J';
INTEGER : SIGN? DIGIT+;
ASTERISK : '*';
END : '%';
NEWLINE : [\r\n]+ -> skip;

mode COMMAND;
COM_ASTERISK : '*' -> type(ASTERISK), popMode;
SEP : ',';
MACRO_VARIABLE : '$' DIGIT* POSITIVE_DIGIT DIGIT*;
DECIMAL : SIGN? DIGIT+ ('.' DIGIT+)? | '.' DIGIT+;
COM_NEWLINE : [\r\n]+ -> skip;

mode MODE_STRING;
STRING : ~[\r\n%*]+ -> popMode;
STRING_NEWLINE : [\r\n]+ -> skip;

mode MODE_AD;
AD_APERTURE_IDENTIFIER : 'D' '0'* POSITIVE_DIGIT DIGIT* -> type(DCODE), mode(MODE_AD1);
AD_NEWLINE : [\r\n]+ -> skip;

mode MODE_AD1;
AD_C : 'C' -> mode(COORD);
AD_R : 'R' -> mode(COORD);
AD_O : 'O' -> mode(COORD);
AD_P : 'P' -> mode(COORD);
NAME : NAME_FRAG -> mode(COORD);
AD1_NEWLINE : [\r\n]+ -> skip;

mode COORD;
CO_X : 'X' -> type(X);
CO_Y : 'Y' -> type(Y);
CO_I : 'I' -> type(I);
CO_J : 'J' -> type(J);
CO_ASTERISK : '*' -> type(ASTERISK);
CO_DECIMAL : (SIGN? DIGIT+ ('.' DIGIT+)? | '.' DIGIT+) -> type(DECIMAL);
CO_END : '%' -> type(END), popMode;
CO_SEP : ',' -> type(SEP);
CO_NEWLINE : [\r\n]+ -> skip;

mode MODE_AM;
AM_NAME : ALPHA_CHAR ALPHA_NUM_CHAR* -> type(NAME);
AM_ASTERISK : '*' -> type(ASTERISK), mode(MACRO_BODY_START);
AM_NEWLINE : [\r\n]+ -> skip;

mode MACRO_BODY_START;
PRIMID0 : '0' -> mode(MACRO_BODY), pushMode(MODE_STRING);
PRIMID1 : '1' -> mode(MACRO_BODY);
PRIMID20 : '20' -> mode(MACRO_BODY);
PRIMID21 : '21' -> mode(MACRO_BODY);
PRIMID4 : '4' -> mode(MACRO_BODY);
PRIMID5 : '5' -> mode(MACRO_BODY);
PRIMID7 : '7' -> mode(MACRO_BODY);
MACDEF_MACRO_VARIABLE : '$' DIGIT* POSITIVE_DIGIT DIGIT* -> type(MACRO_VARIABLE), mode(MACRO_BODY);
MAC_END : '%' -> type(END), popMode;
MACSTART_NEWLINE : [\r\n]+ -> skip;

mode MACRO_BODY;
MAC_ASTERISK : '*' -> type(ASTERISK), mode(MACRO_BODY_START);
ASSIGN : '=';
MAC_UNSIGNED_DECIMAL : (DIGIT+ ('.' DIGIT+)? | '.' DIGIT+) -> type(DECIMAL);
MAC_SEP : ',' -> type(SEP);
MAC_MACRO_VARIABLE : '$' DIGIT* POSITIVE_DIGIT DIGIT* -> type(MACRO_VARIABLE);
ADD : '+';
SUB : '-';
MUL : [xX];
DIV : '/';
PARENL : '(';
PARENR : ')';
MAC_NEWLINE : [\r\n]+ -> skip;

mode TX;
FILE_ATTRIBUTE_BUILTIN : '.Part' | '.FileFunction' | '.FilePolarity' | '.SameCoordinates'
    | '.CreationDate' | '.GenerationSoftware' | '.ProjectId' | '.MD5';
APERTURE_ATTRIBUTE_BUILTIN : '.AperFunction' | '.DrillTolerance' | '.FlashText';
OBJECT_ATTRIBUTE_BUILTIN : '.N' | '.P' | '.CRot' | '.CMfr' | '.CMPN' | '.CVal' | '.CMnt' | '.CFtp'
    | '.CPgN' | '.CPgD' | '.CHgt' | '.CLbN' | '.CLbD' | '.CSup' | '.C';
USER_NAME : [a-zA-Z_$] [a-zA-Z0-9_.]*;
TX_SEP : ',' -> type(SEP), mode(FIELDS);
TX_ASTERISK : '*' -> type(ASTERISK), popMode;
TX_NEWLINE : [\r\n]+ -> skip;

mode FIELDS;
FIELD_SEP : ',' -> type(SEP);
FIELD : ~[\r\n%*,]+;
FIELD_ASTERISK : '*' -> type(ASTERISK), popMode;
FIELD_NEWLINE : [\r\n]+ -> skip;

fragment ANY : ~[%*];
fragment NAME_FRAG : ALPHA_CHAR ALPHA_NUM_CHAR*;
fragment ALPHA_CHAR : [a-zA-Z.];
fragment ALPHA_NUM_CHAR : [a-zA-Z0-9.];
fragment DIGIT : [0-9];
fragment POSITIVE_DIGIT : [1-9];
fragment SIGN : [+-];

// Parses more than the converter acts on: every command of the subset must
// parse, few have to do something. Rule order fixes the rule numbers.
parser grammar GerberParser;

options { tokenVocab = GerberLexer; }

gerb : com* M02 EOF;

com
    : G04 # ComG04
    | MO # ComMO
    | FS # ComFS
    | ad # ComAD
    | am # ComAM
    | dnn # ComDNN
    | d01 # ComD01
    | d02 # ComD02
    | d03 # ComD03
    | G01 # ComG01
    | G02 # ComG02
    | G03 # ComG03
    | G75 # ComG75
    | LP # ComLP
    | LM # ComLM
    | lr # ComLR
    | ls # ComLS
    | G36 contour+ G37 # ComREGION
    | AB DCODE ASTERISK END com* AB ASTERISK END # ComAB
    | sr_open com* sr_close # ComSR
    | tf # ComTF
    | ta # ComTA
    | to # ComTO
    | td # ComTD
    ;

ad
    : AD DCODE AD_C SEP DECIMAL (X DECIMAL)? ASTERISK END # AdC
    | AD DCODE AD_R SEP DECIMAL X DECIMAL (X DECIMAL)? ASTERISK END # AdR
    | AD DCODE AD_O SEP DECIMAL X DECIMAL (X DECIMAL)? ASTERISK END # AdO
    | AD DCODE AD_P SEP DECIMAL X DECIMAL (X DECIMAL (X DECIMAL)?)? ASTERISK END # AdP
    | AD DCODE NAME (SEP DECIMAL (X DECIMAL)*)? ASTERISK END # AdNamed
    ;

am : AM NAME ASTERISK macro_line+ END;

macro_line
    : MACRO_VARIABLE ASSIGN expr ASTERISK # Vardef
    | PRIMID0 STRING ASTERISK # Prim0
    | PRIMID1 SEP expr SEP expr SEP expr SEP expr (SEP expr)? ASTERISK # Prim1
    | PRIMID20 SEP expr SEP expr SEP expr SEP expr SEP expr SEP expr SEP expr ASTERISK # Prim20
    | PRIMID21 SEP expr SEP expr SEP expr SEP expr SEP expr SEP expr ASTERISK # Prim21
    | PRIMID4 SEP expr SEP expr SEP expr SEP expr (SEP expr SEP expr)+ SEP expr ASTERISK # Prim4
    | PRIMID5 SEP expr SEP expr SEP expr SEP expr SEP expr SEP expr ASTERISK # Prim5
    | PRIMID7 SEP expr SEP expr SEP expr SEP expr SEP expr SEP expr ASTERISK # Prim7
    ;

// Alternative order is precedence: a leading sign takes in the binary
// operations to its right (-2x3+1 negates 2x3+1). That is intended.
expr
    : PARENL expr PARENR # ExprPass
    | expr (MUL | DIV) expr # ExprBin
    | expr (ADD | SUB) expr # ExprBin
    | (ADD | SUB) expr # ExprUn
    | MACRO_VARIABLE # ExprVar
    | DECIMAL # ExprLit
    ;

dnn : DCODE ASTERISK;
d01 : (X INTEGER)? (Y INTEGER)? (I INTEGER J INTEGER)? D01;
d02 : (X INTEGER)? (Y INTEGER)? D02;
d03 : (X INTEGER)? (Y INTEGER)? D03;
lr : LR DECIMAL ASTERISK END;
ls : LS DECIMAL ASTERISK END;
// Unreferenced on purpose: com spells regions out itself, and the rule
// numbers behind this one depend on it staying here.
region_statement : G36 contour+ G37;
contour : d02 (d01 | G01 | G02 | G03)*;
sr_open : SR X DECIMAL Y DECIMAL I DECIMAL J DECIMAL ASTERISK END;
sr_close : SR ASTERISK END;
tf : TF file_attribute_name (SEP FIELD)* ASTERISK END;
ta : TA aperture_attribute_name (SEP FIELD)* ASTERISK END;
to : TO object_attribute_name (SEP FIELD)* ASTERISK END;
td : TD any_attribute_name? ASTERISK END;
file_attribute_name : FILE_ATTRIBUTE_BUILTIN | USER_NAME;
aperture_attribute_name : APERTURE_ATTRIBUTE_BUILTIN | USER_NAME;
object_attribute_name : OBJECT_ATTRIBUTE_BUILTIN | USER_NAME;
any_attribute_name : FILE_ATTRIBUTE_BUILTIN | APERTURE_ATTRIBUTE_BUILTIN | OBJECT_ATTRIBUTE_BUILTIN | USER_NAME;

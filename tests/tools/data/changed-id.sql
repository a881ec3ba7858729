CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);
INSERT INTO kel VALUES(-5,'Negative',0,0,1,2,9,5.0,1.0,10.0,0.0);
INSERT INTO kel VALUES(4294967303,'Large',0,0,1,2,9,5.0,1.0,10.0,0.0);
INSERT INTO kel VALUES(8.5,'Real',0,0,1,2,9,5.0,1.0,10.0,0.0);

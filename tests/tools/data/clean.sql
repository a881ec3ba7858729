CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);
INSERT INTO kel VALUES(1,'Speed',0,0,1,2,9,5.0,1.0,10.0,0.0);
INSERT INTO kel VALUES(2,'Force',0,0,1,2,6,5,1,10,0);

CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);
INSERT INTO kel VALUES(NULL,'None',0,0,1,2,9,5.0,1.0,10.0,0.0);
